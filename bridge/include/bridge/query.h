// What the bridges read from the parameters of a request before they ask upstream.
#pragma once

#include <string>
#include <string_view>

#include "util/config/value.h"

namespace hmx {

// The string under `key` by which a request restricts itself to one display or element. Null when there is none, it is not a
// string, or it is "UNDEFINED", which restricts nothing. Good as long as the dictionary. Thread: any.
[[nodiscard]] const std::string* restriction(const util::config::Dictionary& query, std::string_view key) noexcept;

}  // namespace hmx
