// Where the popup manager is published.
#pragma once

#include <string_view>

namespace kelo::hmx::popups {

inline constexpr std::string_view servicePath = "/hmxpopupmanager";

}  // namespace kelo::hmx::popups
