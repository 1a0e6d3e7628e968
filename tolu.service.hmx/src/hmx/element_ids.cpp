#include "hmx/element_ids.h"

#include "kelo/uuid.h"

namespace hmx {

using kelo::hmx::RegionconfigurationObject;
using kelo::hmx::RegionconfigurationObjectDisplayEnum;
using kelo::hmx::RegionconfigurationObjectHmiEnum;

namespace {

// Any display other than the driver's counts as the co-driver's. This is intended.
const char* nameOf(RegionconfigurationObjectDisplayEnum display) noexcept {
    return display == RegionconfigurationObjectDisplayEnum::Driver_Display ? "Driver_Display" : "Co_Driver_Display";
}

const char* nameOf(RegionconfigurationObjectHmiEnum hmi) noexcept {
    return hmi == RegionconfigurationObjectHmiEnum::HMI_ID_ANDROID_DRIVER ? "HMI_ID_ANDROID_DRIVER"
                                                                          : "HMI_ID_ANDROID_DRIVER_POPUP";
}

}  // namespace

std::string displayIdName(const std::string& name) {
    return "hmx/displays/" + name;
}
std::string displayableIdName(const int& number) {
    return "hmx/displayables/" + std::to_string(number);
}
std::string layersIdName(const std::string& displayName) {
    return "hmx/layerconfigurations/" + displayName;
}
std::string popupIdName(std::string_view display, std::string_view name) {
    return std::string{display}.append(name);
}

RegionAddress::RegionAddress(RegionconfigurationObjectDisplayEnum displayEnum, RegionconfigurationObjectHmiEnum hmiEnum,
                             const kelo::optional<std::string>& component)
    : display{nameOf(displayEnum)}, hmi{nameOf(hmiEnum)}, subComponent{component.value_or("")} {}

RegionAddress::RegionAddress(const RegionconfigurationObject& object)
    : RegionAddress{object.display.value(), object.hmi.value(), object.subComponent} {}

std::UUID regionConfigurationId(const RegionAddress& address) {
    return kelo::uuid::createFromName(address.display + address.hmi + address.subComponent);
}

std::string regionConfigurationName(const RegionAddress& address) {
    return "regionConfig_" + address.display + "_" + address.hmi + "_" + address.subComponent;
}

kelo::url regionConfigurationUri(const std::UUID& id) {
    return kelo::url{"hmx/regionconfigurations/" + id.toString()};
}

}  // namespace hmx
