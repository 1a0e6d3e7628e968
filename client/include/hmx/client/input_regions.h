// The touch regions of a display, read from the input manager itself: the resource service does not list them.
#pragma once

#include <string>
#include <vector>

#include "hmx/client/client.h"
#include "hmx/client/document.h"
#include "hmx/client/hit_test.h"

namespace hmx::client {

// The regions as documents in the input manager's own keys, in the order in which touches are matched against them. `client`
// outlives the task. Errors: Error, noService when there is no input manager. To follow them: `Followed::surface`.
[[nodiscard]] Task<std::vector<Json>> readInputRegions(Client& client, std::string display, Deadline deadline);

// The region for the hit test. `layers`: the "layers" of the display's configuration, by which a layer's name or number is found.
// Thread: any.
[[nodiscard]] HitRegion asHitRegion(const Json& region, const Json& layers);

// The entry of `layers` that a region or popup means by `name`: that of the name, or of the number; null when there is none.
// Thread: any.
[[nodiscard]] const Json* findLayer(const Json& layers, const std::string& name);

// What a region is called, "HMI_ID_ANDROID_DRIVER #3", and where it is, "200x100 at 10,20". Thread: any.
[[nodiscard]] std::string regionName(const Json& region);
[[nodiscard]] std::string boundsText(const Json& region);

}  // namespace hmx::client
