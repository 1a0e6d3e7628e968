// Finds out what can be in a JSON string without an escape.
//
// Text is examined in blocks instead of characters. `scan` reports two bit sets for a block: one bit for each quote, backslash
// and control character, of which only the lowest is reliable, and one for each character that is not ASCII.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace kelo::serializer {

// Eight characters as one number; a character's bit is the highest of its byte.
struct JsonWord {
    static constexpr std::ptrdiff_t size = 8;
    static constexpr int bitsEach = 8;
    struct Scan {
        std::uint64_t specials;
        std::uint64_t beyondAscii;
    };

    static constexpr Scan scan(std::uint64_t word) noexcept {
        constexpr std::uint64_t ones = 0x0101010101010101U;
        constexpr std::uint64_t highs = 0x8080808080808080U;
        // The subtraction sets a character's highest bit if the character is smaller. Characters beyond ASCII have it set anyway,
        // so they are excluded at the end, for all three tests at once.
        return {(((word ^ (ones * '"')) - ones) | ((word ^ (ones * '\\')) - ones) | (word - ones * 0x20)) & ~word & highs,
                word & highs};
    }
    using Half = std::uint32_t;
    static constexpr Scan scan(Half first, Half second) noexcept { return scan(first | std::uint64_t{second} << 32U); }
    static Scan scan(const char* at) noexcept {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof word);
        return scan(word);
    }
    static Scan copy(const char* from, char* to) noexcept {
        std::uint64_t word = 0;
        std::memcpy(&word, from, sizeof word);
        std::memcpy(to, &word, sizeof word);
        return scan(word);
    }
};

#ifdef __SSE2__
// Sixteen characters, one bit each; every x86-64 has these instructions. Reading the benchmark's list of four displays costs
// 4,210 instructions with it and 4,370 without (callgrind, mean of 1,000).
struct JsonVector {
    static constexpr std::ptrdiff_t size = 16;
    static constexpr int bitsEach = 1;
    struct Scan {
        unsigned specials;
        unsigned beyondAscii;
    };

    static Scan scan(__m128i block) noexcept {
        const __m128i quotes = _mm_cmpeq_epi8(block, _mm_set1_epi8('"'));
        const __m128i backslashes = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
        const __m128i lows = _mm_cmplt_epi8(block, _mm_set1_epi8(0x20));  // signed, so that this includes characters beyond ASCII
        const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(quotes, backslashes), lows)));
        const auto beyondAscii = static_cast<unsigned>(_mm_movemask_epi8(block));
        return {found & ~beyondAscii, beyondAscii};
    }
    using Half = std::uint64_t;
    static Scan scan(Half first, Half second) noexcept {
        return scan(_mm_set_epi64x(static_cast<long long>(second), static_cast<long long>(first)));
    }
    static Scan scan(const char* at) noexcept { return scan(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))); }
    static Scan copy(const char* from, char* to) noexcept {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
        return scan(block);
    }
};
using JsonBlock = JsonVector;
#else
using JsonBlock = JsonWord;
#endif

// Copies at least one block. Returns whether all of it is plain. The last block overlaps the one before.
template <class Block>
inline bool copyJsonBlocks(const char* from, std::size_t size, char* to) noexcept {
    constexpr auto step = static_cast<std::size_t>(Block::size);
    auto seen = Block::copy(from + (size - step), to + (size - step));
    for (std::size_t i = 0; i + step < size; i += step) {
        const auto scan = Block::copy(from + i, to + i);
        seen.specials |= scan.specials;
        seen.beyondAscii |= scan.beyondAscii;
    }
    return (seen.specials | seen.beyondAscii) == 0;
}

// The same for text shorter than a block, but at least half a block: the two halves, which overlap, are examined as one block.
template <class Block>
inline bool copyJsonHalves(const char* from, std::size_t size, char* to) noexcept {
    typename Block::Half first = 0;
    typename Block::Half second = 0;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&second, from + size - sizeof second, sizeof second);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof second, &second, sizeof second);
    const auto scan = Block::scan(first, second);
    return (scan.specials | scan.beyondAscii) == 0;
}

// Copies text if every character is ASCII and needs no escape in a JSON string. Otherwise returns false; the content of `to` is
// then useless. Thread: any.
template <class Block = JsonBlock>
inline bool copyJsonPlain(std::string_view text, char* to) noexcept {
    const std::size_t size = text.size();
    if (size >= static_cast<std::size_t>(Block::size)) return copyJsonBlocks<Block>(text.data(), size, to);
    if (size >= sizeof(typename Block::Half)) return copyJsonHalves<Block>(text.data(), size, to);
    if (size >= sizeof(JsonWord::Half)) return copyJsonHalves<JsonWord>(text.data(), size, to);
    for (std::size_t i = 0; i < size; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') return false;
        to[i] = text[i];
    }
    return true;
}

// The first quote, backslash or control character; `end` if there is none. Sets `ascii` to false if there is a byte beyond ASCII
// before it. Thread: any.
template <class Block = JsonBlock>
inline const char* findJsonSpecial(const char* at, const char* end, bool& ascii) noexcept {
    bool isAscii = true;
    if constexpr (std::endian::native == std::endian::little) {
        for (; end - at >= Block::size; at += Block::size) {
            const auto scan = Block::scan(at);
            if (scan.specials != 0) {
                const auto before = (scan.specials & (0 - scan.specials)) - 1;
                ascii = ascii && isAscii && (scan.beyondAscii & before) == 0;
                return at + std::countr_zero(scan.specials) / Block::bitsEach;
            }
            isAscii = isAscii && scan.beyondAscii == 0;
        }
    }
    for (; at < end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20; ++at) {
        isAscii = isAscii && static_cast<unsigned char>(*at) < 0x80;
    }
    ascii = ascii && isAscii;
    return at;
}

}  // namespace kelo::serializer
