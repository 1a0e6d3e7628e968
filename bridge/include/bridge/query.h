// What the bridges read from the parameters of a request before they ask upstream.
#pragma once

#include <string>
#include <string_view>

#include "util/config/value.h"

namespace hmx {

// The string under `key`, which restricts a request to one display or element. Null if there is none, if it is not a string, or
// if it is "UNDEFINED", which restricts nothing. Valid as long as the dictionary. Thread: any.
[[nodiscard]] const std::string* restriction(const util::config::Dictionary& query, std::string_view key) noexcept;

}  // namespace hmx
