// Region configurations as elements of our resource, and as the input manager takes them.
#pragma once

#include <string>

#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "hmx/regionconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx {

// Where a region configuration applies, in the input manager's names. Only the subcomponent can be empty. Thread: any (a value).
struct RegionAddress {
    std::string display;
    std::string hmi;
    std::string subComponent;

    RegionAddress(kelo::hmx::RegionconfigurationObjectDisplayEnum displayEnum,
                  kelo::hmx::RegionconfigurationObjectHmiEnum hmiEnum, const kelo::optional<std::string>& component);
    // Throws if display or HMI is absent.
    explicit RegionAddress(const kelo::hmx::RegionconfigurationObject& object);

    friend bool operator==(const RegionAddress&, const RegionAddress&) = default;
};

// What follows from the address alone: one configuration has one id, whoever inserts it. Thread: any.
[[nodiscard]] std::UUID regionConfigurationId(const RegionAddress& address);
[[nodiscard]] std::string regionConfigurationName(const RegionAddress& address);
// Without the service's root, and without a slash in front.
[[nodiscard]] kelo::url regionConfigurationUri(const std::UUID& id);

// The configuration's regions. What is absent stays absent, but for the list of layers, which is empty then. Thread: any.
[[nodiscard]] kelo::hmx::inputregions::HapticAndInputInfoPerHMI toUpstreamRegions(
    const kelo::hmx::RegionconfigurationObject& object);

}  // namespace hmx
