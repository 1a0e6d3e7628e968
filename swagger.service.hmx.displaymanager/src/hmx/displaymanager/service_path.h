// The service path of the display manager.
#pragma once

#include <string_view>

namespace kelo::hmx::displaymanager {

inline constexpr std::string_view servicePath = "/hmxdisplaymanager";

}  // namespace kelo::hmx::displaymanager
