// What the display manager reports, as elements of our resources.
#pragma once

#include <memory>
#include <string>

#include "hmx/display_object.h"
#include "hmx/displayable_object.h"
#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/displayable.h"
#include "hmx/layerconfiguration_object.h"
#include "kelo/std/uuid.h"

namespace hmx {

// The name that a display goes by: its own, or that of all nameless displays. Good as long as the display. Thread: any.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::Display& display) noexcept;
// That of the display that the configuration is of.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::DisplayLayers& configuration) noexcept;

// What the ids of elements are made from. Thread: any.
[[nodiscard]] std::string displayIdName(const std::string& name);
[[nodiscard]] std::string displayableIdName(const int& number);
[[nodiscard]] std::string layersIdName(const std::string& displayName);

// The elements, each made where a page keeps it; `id` is theirs. Members that upstream does not report are absent, null pointers
// count as not reported. Thread: any.
[[nodiscard]] std::shared_ptr<kelo::hmx::DisplayObject> toDisplayObject(const kelo::hmx::displaymanager::Display& display,
                                                                        const std::UUID& id);
[[nodiscard]] std::shared_ptr<kelo::hmx::DisplayableObject> toDisplayableObject(
    const kelo::hmx::displaymanager::Displayable& displayable, const std::UUID& id);
[[nodiscard]] std::shared_ptr<kelo::hmx::LayerconfigurationObject> toLayerconfigurationObject(
    const kelo::hmx::displaymanager::DisplayLayers& configuration, const std::UUID& id);

}  // namespace hmx
