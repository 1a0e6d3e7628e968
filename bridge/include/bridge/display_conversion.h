// What the display manager reports, as elements of our resources.
#pragma once

#include <string>

#include "bridge/identity.h"
#include "hmx/display_object.h"
#include "hmx/displayable_object.h"
#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/displayable.h"
#include "hmx/element_ids.h"
#include "hmx/layerconfiguration_object.h"

namespace hmx {

// The name that a display goes by: its own, or that of all nameless displays. Good as long as the display. Thread: any.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::Display& display) noexcept;
// That of the display that the configuration is of.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::DisplayLayers& configuration) noexcept;

// Each makes `object` the element of that identity, whatever it was before. Members that upstream does not report become absent,
// null pointers count as not reported. Objects that it holds are written over, unless somebody else holds them as well.
// Thread: that of all who hold `object`.
void convert(const kelo::hmx::displaymanager::Display& display, const Identity& identity, kelo::hmx::DisplayObject& object);
void convert(const kelo::hmx::displaymanager::Displayable& displayable, const Identity& identity,
             kelo::hmx::DisplayableObject& object);
void convert(const kelo::hmx::displaymanager::DisplayLayers& configuration, const Identity& identity,
             kelo::hmx::LayerconfigurationObject& object);

}  // namespace hmx
