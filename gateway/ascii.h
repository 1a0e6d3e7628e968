// The names of HTTP, which are compared without regard to case: ASCII letters only.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace hmxgateway {

[[nodiscard]] constexpr char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] inline std::string lowered(std::string_view text) {
    std::string lower{text};
    for (char& c : lower) c = lowered(c);
    return lower;
}

[[nodiscard]] inline bool equalInAnyCase(std::string_view a, std::string_view b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lowered(x) == lowered(y); });
}

}  // namespace hmxgateway
