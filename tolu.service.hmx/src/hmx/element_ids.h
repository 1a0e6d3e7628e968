// The texts that the ids of elements are made from: an element's name determines its id, on every machine.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "hmx/regionconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx {

// What a display without a name is called; its display manager does not know it under that name.
inline const std::string namelessDisplay{"no_name_defined"};

// The ids are the version-5 UUIDs of these texts. Thread: any, as for everything here.
[[nodiscard]] std::string displayIdName(const std::string& name);
[[nodiscard]] std::string displayableIdName(const int& number);
[[nodiscard]] std::string layersIdName(const std::string& displayName);
[[nodiscard]] std::string popupIdName(std::string_view display, std::string_view name);

// Where a region configuration applies, in the input manager's names. Only the subcomponent may be empty. Thread: any (a value).
struct RegionAddress {
    std::string display;
    std::string hmi;
    std::string subComponent;

    RegionAddress(std::string itsDisplay, std::string itsHmi, std::string itsSubComponent)
        : display{std::move(itsDisplay)}, hmi{std::move(itsHmi)}, subComponent{std::move(itsSubComponent)} {}
    RegionAddress(kelo::hmx::RegionconfigurationObjectDisplayEnum displayEnum,
                  kelo::hmx::RegionconfigurationObjectHmiEnum hmiEnum, const kelo::optional<std::string>& component);
    // Throws if the display or the HMI is absent.
    explicit RegionAddress(const kelo::hmx::RegionconfigurationObject& object);

    friend bool operator==(const RegionAddress&, const RegionAddress&) = default;
};

// Both depend only on the address: a configuration has the same id whoever inserts it. Thread: any.
[[nodiscard]] std::UUID regionConfigurationId(const RegionAddress& address);
[[nodiscard]] std::string regionConfigurationName(const RegionAddress& address);
// Without the service's root and without a leading slash.
[[nodiscard]] kelo::url regionConfigurationUri(const std::UUID& id);

}  // namespace hmx
