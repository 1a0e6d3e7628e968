// The service path of the input manager.
#pragma once

#include <string_view>

namespace kelo::hmx::inputregions {

inline constexpr std::string_view servicePath = "/hmxinputmanager";

}  // namespace kelo::hmx::inputregions
