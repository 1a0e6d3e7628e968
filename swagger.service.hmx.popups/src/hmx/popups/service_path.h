// The service path of the popup manager.
#pragma once

#include <string_view>

namespace kelo::hmx::popups {

inline constexpr std::string_view servicePath = "/hmxpopupmanager";

}  // namespace kelo::hmx::popups
