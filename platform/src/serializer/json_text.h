// What may stand in a JSON string as it is.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kelo::serializer {

// Eight characters at a time, as one number: the high bit of each that is a quote, a backslash or a control character. Above the
// lowest bit that is set there may be others that should not be.
constexpr std::uint64_t jsonSpecials(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101U;
    constexpr std::uint64_t highs = 0x8080808080808080U;
    const auto below = [](std::uint64_t w, std::uint64_t limit) { return (w - ones * limit) & ~w & highs; };
    return below(word ^ (ones * '"'), 1) | below(word ^ (ones * '\\'), 1) | below(word, 0x20);
}

// The first quote, backslash or control character; `end` if there is none. `ascii` becomes false when a byte beyond ASCII stands
// before it. Thread: any.
inline const char* findJsonSpecial(const char* at, const char* end, bool& ascii) noexcept {
    constexpr std::uint64_t highs = 0x8080808080808080U;
    std::uint64_t seen = 0;
    if constexpr (std::endian::native == std::endian::little) {
        while (end - at >= 8) {
            std::uint64_t word = 0;
            std::memcpy(&word, at, sizeof word);
            if (const std::uint64_t specials = jsonSpecials(word); specials != 0) {
                const std::uint64_t before = (specials & (0 - specials)) - 1;
                ascii = ascii && ((seen | (word & before)) & highs) == 0;
                return at + std::countr_zero(specials) / 8;
            }
            seen |= word;
            at += 8;
        }
    }
    for (; at < end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20; ++at) {
        seen |= static_cast<unsigned char>(*at);
    }
    ascii = ascii && (seen & highs) == 0;
    return at;
}

}  // namespace kelo::serializer
