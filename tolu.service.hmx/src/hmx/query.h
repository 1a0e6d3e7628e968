// What a request's parameters restrict a resource to, for all who serve one.
#pragma once

#include <string>
#include <string_view>

#include "util/config/value.h"

namespace hmx {

// The query value that names one displayable.
inline constexpr std::string_view displayableParameter = "displayableID";

// The string under `key`, which restricts a request to one display or element. Null if there is none, if it is not a string, or
// if it is "UNDEFINED", which restricts nothing. Valid as long as the dictionary. Thread: any, as for everything here.
[[nodiscard]] const std::string* restriction(const util::config::Dictionary& query, std::string_view key) noexcept;

// Whether the query is for one displayable, whose number is then in `number`. The smallest int means "not specified".
[[nodiscard]] bool wantsDisplayable(const util::config::Dictionary& query, int& number) noexcept;
// Whether the query is for a number that no displayable can have.
[[nodiscard]] bool wantsNoDisplayable(const util::config::Dictionary& query) noexcept;

}  // namespace hmx
