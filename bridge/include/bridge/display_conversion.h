// Converts what the display manager reports to elements of our resources.
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

// The name of a display; nameless displays share one. Valid as long as the display. Thread: any.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::Display& display) noexcept;
// The name of the configuration's display.
[[nodiscard]] const std::string& displayName(const kelo::hmx::displaymanager::DisplayLayers& configuration) noexcept;

// Each turns `object` into the element with that identity and overwrites what it contained. Members that upstream does not report
// become absent; a null pointer counts as not reported. Nested objects are reused unless somebody else holds them too. Thread:
// that of all who hold `object`.
void convert(const kelo::hmx::displaymanager::Display& display, const Identity& identity, kelo::hmx::DisplayObject& object);
void convert(const kelo::hmx::displaymanager::Displayable& displayable, const Identity& identity,
             kelo::hmx::DisplayableObject& object);
void convert(const kelo::hmx::displaymanager::DisplayLayers& configuration, const Identity& identity,
             kelo::hmx::LayerconfigurationObject& object);

}  // namespace hmx
