// Checks whether bytes are valid text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kelo::serializer {

// Nearly all text here is ASCII and short, so the check is inline. It compares words of eight or four bytes; the last one
// overlaps the one before. Thread: any.
[[nodiscard]] inline bool isAscii(std::string_view text) noexcept {
    constexpr std::uint64_t highs = 0x8080808080808080U;
    const auto load = [&]<class Word>(Word word, std::size_t at) {
        std::memcpy(&word, text.data() + at, sizeof word);
        return word;
    };
    const std::size_t size = text.size();
    std::uint64_t seen = 0;
    if (size >= 8) {
        for (std::size_t i = 0; i + 8 < size; i += 8) seen |= load(std::uint64_t{}, i);
        seen |= load(std::uint64_t{}, size - 8);
    } else if (size >= 4) {
        seen = load(std::uint32_t{}, 0) | load(std::uint32_t{}, size - 4);
    } else {
        for (const char c : text) seen |= static_cast<unsigned char>(c);
    }
    return (seen & highs) == 0;
}

// The part of isValidUtf8() for text that is not ASCII.
[[nodiscard]] bool isValidBeyondAscii(std::string_view text) noexcept;

// Well-formed UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF. Thread: any.
[[nodiscard]] inline bool isValidUtf8(std::string_view text) noexcept {
    return isAscii(text) || isValidBeyondAscii(text);
}

}  // namespace kelo::serializer
