// The state of the hardware that an answer is about.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace kelo::hmx::inputregions {

// Thread: any (a value).
enum class Status : std::uint8_t { init, ok, error };

constexpr auto enumNames(Status) {
    return std::array<std::string_view, 3>{"STATUS_INIT", "STATUS_OK", "STATUS_ERROR"};
}

}  // namespace kelo::hmx::inputregions
