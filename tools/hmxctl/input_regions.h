// The touch regions of a display, read from the input manager itself: the resource service does not list them.
#pragma once

#include <string>
#include <vector>

#include "context.h"
#include "document.h"
#include "hit_test.h"

namespace hmxctl {

// The regions as documents in the input manager's own keys, in the order in which touches are matched against them.
// Errors: Failure; serviceAbsent when there is no input manager. Thread: main.
[[nodiscard]] std::vector<Json> readInputRegions(Context& context, const std::string& display);

// The region for the hit test. `layers`: the "layers" of the display's configuration, by which a layer's name or number is found.
[[nodiscard]] HitRegion asHitRegion(const Json& region, const Json& layers);

// The entry of `layers` that a region or popup means by `name`: that of the name, or of the number; null when there is none.
[[nodiscard]] const Json* findLayer(const Json& layers, const std::string& name);

// What a region is called, "HMI_ID_ANDROID_DRIVER #3", and where it is, "200x100 at 10,20".
[[nodiscard]] std::string regionName(const Json& region);
[[nodiscard]] std::string boundsText(const Json& region);

}  // namespace hmxctl
