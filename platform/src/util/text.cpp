#include "util/text.h"

#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

namespace util {

Character firstCharacter(std::string_view text) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    if (first < 0x80) return {first, 1, true};
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return {};
    char32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) return {};
        code = (code << 6U) | (byte(i) & 0x3FU);
    }
    const bool tooShort = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    if (tooShort || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {};
    return {code, length, true};
}

bool isCommand(char32_t code) noexcept {
    const auto within = [=](char32_t first, char32_t last) { return code >= first && code <= last; };
    if (code < 0x7F) return code < 0x20;
    return code < 0xA0 || code == 0x061C || within(0x200E, 0x200F) || within(0x2028, 0x202E) || within(0x2066, 0x2069);
}

Escape::Escape(const Character& character, char byte) noexcept {
    const auto put = [this](unsigned value, unsigned digits) {
        for (unsigned left = digits; left > 0; --left) chars[size++] = "0123456789abcdef"[value >> (4 * (left - 1)) & 15U];
    };
    const auto code = character.isValid ? static_cast<unsigned>(character.code) : static_cast<unsigned char>(byte);
    if (const char letter = code == '\n' ? 'n' : code == '\r' ? 'r' : code == '\t' ? 't' : '\0'; letter != '\0') {
        chars[size++] = letter;
    } else {
        chars[size++] = code < 0x100 ? 'x' : 'u';
        put(code, code < 0x100 ? 2 : 4);
    }
}

std::vector<std::string> entriesOf(std::string_view list) {
    std::vector<std::string> entries;
    while (!list.empty()) entries.emplace_back(takeEntry(list));
    return entries;
}

bool percentDecode(std::string_view text, std::string& out) {
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        if (text.front() != '%') {
            decoded += text.front();
            text.remove_prefix(1);
            continue;
        }
        unsigned char byte = 0;
        if (text.size() < 3) return false;
        const auto result = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
        if (result.ec != std::errc{} || result.ptr != text.data() + 3) return false;
        decoded += static_cast<char>(byte);
        text.remove_prefix(3);
    }
    out = std::move(decoded);
    return true;
}

std::string printable(std::string_view text, std::size_t most) {
    std::string shown;
    visitShown(text, [&](std::string_view piece) {
        const bool fits = piece.size() <= most - shown.size();
        shown += fits ? piece : std::string_view{"…"};
        return fits;
    });
    return shown;
}

}  // namespace util
