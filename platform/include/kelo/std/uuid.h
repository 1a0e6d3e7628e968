// std::UUID: the framework's 128-bit identifier, a value.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

namespace std {

// Thread: any (a value).
class UUID {
public:
    static constexpr size_t byteCount = 16;
    static constexpr size_t textLength = 36;

    constexpr UUID() noexcept = default;  // the nil UUID
    constexpr explicit UUID(const array<uint8_t, byteCount>& bytes) noexcept : bytes_{bytes} {}

    // Reads the hyphenated form, in upper or lower case. For any other text, returns false and leaves `out` unchanged.
    static bool parse(string_view text, UUID& out) noexcept;

    // Lower-case, hyphenated, 36 characters (RFC 9562).
    string toString() const;
    // The same, written to a buffer of `textLength` characters, without a terminator.
    void toChars(char* out) const noexcept;

    constexpr const array<uint8_t, byteCount>& bytes() const noexcept { return bytes_; }
    constexpr bool isNil() const noexcept { return *this == UUID{}; }

    friend constexpr bool operator==(const UUID& a, const UUID& b) noexcept {
        // Compared as two words: comparing the arrays would be a function call.
        using Words = array<uint64_t, 2>;
        const auto x = bit_cast<Words>(a.bytes_);
        const auto y = bit_cast<Words>(b.bytes_);
        return x[0] == y[0] && x[1] == y[1];
    }
    friend constexpr auto operator<=>(const UUID&, const UUID&) noexcept = default;

private:
    array<uint8_t, byteCount> bytes_{};
};

template <>
struct hash<UUID> {
    size_t operator()(const UUID& id) const noexcept {
        size_t word = 0;  // ids are hashes already, so eight of their bytes are enough
        memcpy(&word, id.bytes().data(), sizeof word);
        return word;
    }
};

}  // namespace std
