// What may stand in a JSON string as it is.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kelo::serializer {

// Eight characters at a time, as one number: the high bit of each that is a quote, a backslash or a control character. Above the
// lowest bit that is set there may be others that should not be.
constexpr std::uint64_t jsonSpecials(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101U;
    constexpr std::uint64_t highs = 0x8080808080808080U;
    // What is taken off a character sets its high bit where it is the greater. Those beyond ASCII have theirs set anyway: they
    // are excluded at the end, at once for all three.
    return (((word ^ (ones * '"')) - ones) | ((word ^ (ones * '\\')) - ones) | (word - ones * 0x20)) & ~word & highs;
}

// Copies text of which every character is ASCII and may stand in a JSON string as it is. False as soon as one is not; what `to`
// holds is then of no use. Thread: any.
inline bool copyJsonPlain(std::string_view text, char* to) noexcept {
    constexpr std::uint64_t highs = 0x8080808080808080U;
    const char* const at = text.data();
    const std::size_t size = text.size();
    std::uint64_t odd = 0;
    const auto copyWord = [&](std::size_t i) {
        std::uint64_t word = 0;
        std::memcpy(&word, at + i, sizeof word);
        std::memcpy(to + i, &word, sizeof word);
        odd |= jsonSpecials(word) | (word & highs);
    };
    const auto copyHalf = [&](std::size_t i) {
        std::uint32_t word = 0;
        std::memcpy(&word, at + i, sizeof word);
        std::memcpy(to + i, &word, sizeof word);
        odd |= jsonSpecials(word | std::uint64_t{0x20202020} << 32U) | (word & highs);
    };
    // The last word or half overlaps the one before.
    if (size >= 8) {
        for (std::size_t i = 0; i + 8 < size; i += 8) copyWord(i);
        copyWord(size - 8);
    } else if (size >= 4) {
        copyHalf(0);
        copyHalf(size - 4);
    } else {
        for (std::size_t i = 0; i < size; ++i) {
            const auto c = static_cast<unsigned char>(at[i]);
            if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') return false;
            to[i] = at[i];
        }
    }
    return odd == 0;
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
