// Text that others have written, and text for others: shown, listed, percent-encoded.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace util {

// A character as it stands in UTF-8, or one byte that begins none. Thread: any (a value).
struct Character {
    char32_t code = 0xFFFD;
    std::size_t length = 1;
    bool isValid = false;
};

// The first character of a text that is not empty (RFC 3629: no overlong forms, no surrogates, nothing beyond U+10FFFF).
[[nodiscard]] Character firstCharacter(std::string_view text) noexcept;

// Whether a terminal or an editor would obey the character rather than show it: controls (those of Latin-1, too), line and
// paragraph separators, and marks that change the direction of writing, with which one text looks like another.
[[nodiscard]] bool isCommand(char32_t code) noexcept;

// How such a character, or a byte that begins none, is written instead: "\n", "\x9b", "\u202e". Thread: any (a value).
struct Escape {
    explicit Escape(const Character& character, char byte) noexcept;
    std::string_view text() const noexcept { return {chars, size}; }

    char chars[6]{'\\'};
    std::size_t size = 1;
};

// Hands `text` to visit(piece) character by character, each as it stands or escaped, until that returns false.
template <class Visit>
void visitShown(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const Character next = firstCharacter(text);
        const bool isShown = next.isValid && !isCommand(next.code);
        if (!visit(isShown ? text.substr(0, next.length) : Escape{next, text.front()}.text())) return;
        text.remove_prefix(next.length);
    }
}

// The text with escapes in place of commands, of at most `most` bytes and an ellipsis if it is longer: what a peer sends stands
// in a log line only like this, so that it neither ends the line nor pushes out what is said after it.
[[nodiscard]] std::string printable(std::string_view text, std::size_t most = 256);

// Takes the first entry off a list separated by commas, as it stands.
[[nodiscard]] inline std::string_view takeEntry(std::string_view& list) noexcept {
    const std::string_view entry = list.substr(0, list.find(','));
    list.remove_prefix(entry.size() < list.size() ? entry.size() + 1 : entry.size());
    return entry;
}
// All entries.
[[nodiscard]] std::vector<std::string> entriesOf(std::string_view list);

// Appends the text with "%XX", in capital digits, for each byte that isPlain(char) is false for.
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
// False, and `out` untouched, when a "%" is followed by anything but two hexadecimal digits.
[[nodiscard]] bool percentDecode(std::string_view text, std::string& out);

}  // namespace util
