// The displays that a region configuration may be for.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace kelo::hmx {

enum class RegionconfigurationObjectDisplayEnum : std::uint8_t { Co_Driver_Display, Driver_Display };
constexpr auto enumNames(RegionconfigurationObjectDisplayEnum) {
    return std::array<std::string_view, 2>{"Co_Driver_Display", "Driver_Display"};
}

}  // namespace kelo::hmx
