// Where the input manager is published.
#pragma once

#include <string_view>

namespace kelo::hmx::inputregions {

inline constexpr std::string_view servicePath = "/hmxinputmanager";

}  // namespace kelo::hmx::inputregions
