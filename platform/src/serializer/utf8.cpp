#include "serializer/utf8.h"

#include <cstddef>

// Checks text that is not ASCII. The range of a character's second byte depends on the first; this excludes overlong forms,
// surrogates and values above the last code point.

namespace kelo::serializer {
namespace {

bool isContinuation(unsigned char byte) noexcept {
    return (byte & 0xc0U) == 0x80U;
}

// The length of the multi-byte character at `at`; 0 if there is no valid one.
std::size_t characterLength(const unsigned char* at, std::size_t left) noexcept {
    const unsigned char first = at[0];
    if (first >= 0xc2 && first <= 0xdf) return left >= 2 && isContinuation(at[1]) ? 2 : 0;
    if (first >= 0xe0 && first <= 0xef) {
        const unsigned char lowest = first == 0xe0 ? 0xa0 : 0x80;
        const unsigned char highest = first == 0xed ? 0x9f : 0xbf;
        return left >= 3 && at[1] >= lowest && at[1] <= highest && isContinuation(at[2]) ? 3 : 0;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        const unsigned char lowest = first == 0xf0 ? 0x90 : 0x80;
        const unsigned char highest = first == 0xf4 ? 0x8f : 0xbf;
        return left >= 4 && at[1] >= lowest && at[1] <= highest && isContinuation(at[2]) && isContinuation(at[3]) ? 4 : 0;
    }
    return 0;
}

}  // namespace

bool isValidBeyondAscii(std::string_view text) noexcept {
    const auto* at = reinterpret_cast<const unsigned char*>(text.data());
    const auto* const end = at + text.size();
    while (at < end) {
        const std::size_t length = *at < 0x80 ? 1 : characterLength(at, static_cast<std::size_t>(end - at));
        if (length == 0) return false;
        at += length;
    }
    return true;
}

}  // namespace kelo::serializer
