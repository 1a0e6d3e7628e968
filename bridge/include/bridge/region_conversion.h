// Region configurations as the input manager takes them.
#pragma once

#include "hmx/element_ids.h"
#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "hmx/regionconfiguration_object.h"

namespace hmx {

// Returns the configuration's regions. What is absent stays absent, except for the list of layers, which is then empty. Thread:
// any.
[[nodiscard]] kelo::hmx::inputregions::HapticAndInputInfoPerHMI toUpstreamRegions(
    const kelo::hmx::RegionconfigurationObject& object);

}  // namespace hmx
