// Whether bytes are text.
#pragma once

#include <string_view>

namespace kelo::serializer {

// Well-formed UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF. Thread: any.
[[nodiscard]] bool isValidUtf8(std::string_view text) noexcept;

}  // namespace kelo::serializer
