// The HMIs that a region configuration may belong to.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace kelo::hmx {

enum class RegionconfigurationObjectHmiEnum : std::uint8_t { HMI_ID_ANDROID_DRIVER, HMI_ID_ANDROID_DRIVER_POPUP };
constexpr auto enumNames(RegionconfigurationObjectHmiEnum) {
    return std::array<std::string_view, 2>{"HMI_ID_ANDROID_DRIVER", "HMI_ID_ANDROID_DRIVER_POPUP"};
}

}  // namespace kelo::hmx
