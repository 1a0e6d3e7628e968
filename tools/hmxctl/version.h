// The version that `hmxctl version` shows.
#pragma once

#include <string_view>

namespace hmxctl {

inline constexpr std::string_view version = "0.1.0";

}  // namespace hmxctl
