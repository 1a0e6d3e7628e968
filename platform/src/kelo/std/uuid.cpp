#include "kelo/std/uuid.h"

namespace std {

namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr uint8_t kNoDigit = 0xFF;

constexpr array<uint8_t, 256> kDigitValues = [] {
    array<uint8_t, 256> values{};
    for (auto& value : values) value = kNoDigit;
    for (uint8_t digit = 0; digit < 16; ++digit) {
        const auto c = static_cast<unsigned char>(kDigits[digit]);
        values[c] = digit;
        if (digit >= 10) values[c - ('a' - 'A')] = digit;
    }
    return values;
}();

// The two digits of each byte.
constexpr array<array<char, 2>, 256> kPairs = [] {
    array<array<char, 2>, 256> pairs{};
    for (size_t byte = 0; byte < pairs.size(); ++byte) pairs[byte] = {kDigits[byte >> 4U], kDigits[byte & 15U]};
    return pairs;
}();

// The position of each byte's first digit in the text.
constexpr array<uint8_t, UUID::byteCount> kPositions{0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};
constexpr size_t kHyphens[] = {8, 13, 18, 23};

}  // namespace

bool UUID::parse(string_view text, UUID& out) noexcept {
    if (text.size() != textLength) return false;
    for (const size_t position : kHyphens) {
        if (text[position] != '-') return false;
    }
    array<uint8_t, byteCount> bytes;
    uint8_t invalid = 0;
    for (size_t i = 0; i < byteCount; ++i) {
        const uint8_t high = kDigitValues[static_cast<unsigned char>(text[kPositions[i]])];
        const uint8_t low = kDigitValues[static_cast<unsigned char>(text[kPositions[i] + 1U])];
        invalid |= high | low;  // only kNoDigit has any of the upper four bits set
        bytes[i] = static_cast<uint8_t>(high << 4U | low);
    }
    if (invalid > 15) return false;
    out = UUID{bytes};
    return true;
}

void UUID::toChars(char* out) const noexcept {
    for (size_t i = 0; i < byteCount; ++i) memcpy(out + kPositions[i], kPairs[bytes_[i]].data(), 2);
    for (const size_t position : kHyphens) out[position] = '-';
}

string UUID::toString() const {
    string text(textLength, '\0');
    toChars(text.data());
    return text;
}

}  // namespace std
