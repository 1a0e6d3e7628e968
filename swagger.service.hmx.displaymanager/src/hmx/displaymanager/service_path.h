// Where the display manager is published.
#pragma once

#include <string_view>

namespace kelo::hmx::displaymanager {

inline constexpr std::string_view servicePath = "/hmxdisplaymanager";

}  // namespace kelo::hmx::displaymanager
