// What the ids of elements are made from: whoever knows an element's name knows its id, on every machine.
#pragma once

#include <string>
#include <string_view>

#include "hmx/regionconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx {

// The texts of which the ids are version-5 UUIDs. Thread: any, as all here.
[[nodiscard]] std::string displayIdName(const std::string& name);
[[nodiscard]] std::string displayableIdName(const int& number);
[[nodiscard]] std::string layersIdName(const std::string& displayName);
[[nodiscard]] std::string popupIdName(std::string_view display, std::string_view name);

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

}  // namespace hmx
