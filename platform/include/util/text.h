// Text from others, and text for others: made printable, split, percent-encoded.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace util {

// A UTF-8 character, or one byte that begins none. Thread: any (a value).
struct Character {
    char32_t code = 0xFFFD;
    std::size_t length = 1;
    bool isValid = false;
};

// The first character of `text`, which must not be empty (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF).
[[nodiscard]] Character firstCharacter(std::string_view text) noexcept;

// Whether a terminal or editor would act on the character instead of showing it: control characters (also those of Latin-1), line
// and paragraph separators, and marks that change the direction of writing and so can make one text look like another.
[[nodiscard]] bool isCommand(char32_t code) noexcept;

// How such a character, or a byte that begins no character, is written: "\n", "\x9b", "\u202e". Thread: any (a value).
struct Escape {
    explicit Escape(const Character& character, char byte) noexcept;
    std::string_view text() const noexcept { return {chars, size}; }

    char chars[6]{'\\'};
    std::size_t size = 1;
};

// Calls visit(piece) for each character of `text`, as it is or escaped, until `visit` returns false.
template <class Visit>
void visitShown(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const Character next = firstCharacter(text);
        const bool isShown = next.isValid && !isCommand(next.code);
        if (!visit(isShown ? text.substr(0, next.length) : Escape{next, text.front()}.text())) return;
        text.remove_prefix(next.length);
    }
}

// The text with such characters escaped, cut after at most `most` bytes and marked with an ellipsis. Text from a peer is logged
// only in this form, so that it can neither end the line nor push out what comes after it.
[[nodiscard]] std::string printable(std::string_view text, std::size_t most = 256);

// Removes and returns the first entry of a comma-separated list, unchanged.
[[nodiscard]] inline std::string_view takeEntry(std::string_view& list) noexcept {
    const std::string_view entry = list.substr(0, list.find(','));
    list.remove_prefix(entry.size() < list.size() ? entry.size() + 1 : entry.size());
    return entry;
}
// All entries of such a list.
[[nodiscard]] std::vector<std::string> entriesOf(std::string_view list);

// Appends the text; each byte for which isPlain(char) is false becomes "%XX", in capital digits.
template <class IsPlain>
void appendPercentEncoded(std::string& out, std::string_view text, IsPlain isPlain) {
    constexpr char digits[] = "0123456789ABCDEF";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isPlain(c)) {
            out += c;
        } else {
            out += {'%', digits[byte >> 4U], digits[byte & 15U]};
        }
    }
}
// False if a "%" is not followed by two hexadecimal digits; `out` is then unchanged.
[[nodiscard]] bool percentDecode(std::string_view text, std::string& out);

}  // namespace util
