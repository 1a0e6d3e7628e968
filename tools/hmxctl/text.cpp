#include "text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "util/text.h"

namespace hmxctl {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Marks and joiners that take no column of their own, and scripts and pictures that take two: the blocks that names on displays
// are likely to hold, not the whole of Unicode.
constexpr std::array zeroWidth{Range{0x0300, 0x036F}, Range{0x0483, 0x0489}, Range{0x0591, 0x05BD}, Range{0x064B, 0x065F},
                               Range{0x0E34, 0x0E3A}, Range{0x0E47, 0x0E4E}, Range{0x1AB0, 0x1AFF}, Range{0x1DC0, 0x1DFF},
                               Range{0x200B, 0x200F}, Range{0x20D0, 0x20FF}, Range{0x302A, 0x302D}, Range{0xFE00, 0xFE0F},
                               Range{0xFE20, 0xFE2F}, Range{0xFEFF, 0xFEFF}};
constexpr std::array twoWide{Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},  Range{0x3041, 0x33FF}, Range{0x3400, 0x4DBF},
                             Range{0x4E00, 0x9FFF},   Range{0xA000, 0xA4CF},  Range{0xAC00, 0xD7A3}, Range{0xF900, 0xFAFF},
                             Range{0xFE30, 0xFE6F},   Range{0xFF00, 0xFF60},  Range{0xFFE0, 0xFFE6}, Range{0x1F300, 0x1F6FF},
                             Range{0x1F900, 0x1F9FF}, Range{0x20000, 0x3FFFD}};

template <std::size_t N>
bool within(const std::array<Range, N>& ranges, char32_t code) noexcept {
    return std::any_of(ranges.begin(), ranges.end(), [=](Range range) { return code >= range.first && code <= range.last; });
}

std::size_t widthOf(char32_t code) noexcept {
    if (code < 0x300) return 1;
    if (within(zeroWidth, code)) return 0;
    return within(twoWide, code) ? 2 : 1;
}

// The length of the colour sequence that begins here, or 0.
std::size_t sequenceLength(std::string_view text) noexcept {
    if (text.size() < 2 || text[0] != '\x1b' || text[1] != '[') return 0;
    const std::size_t end = text.find('m', 2);
    return end == std::string_view::npos ? 0 : end + 1;
}

constexpr std::string_view reset = "\x1b[0m";

}  // namespace

std::size_t displayWidth(std::string_view text) noexcept {
    std::size_t width = 0;
    while (!text.empty()) {
        if (const std::size_t skip = sequenceLength(text)) {
            text.remove_prefix(skip);
            continue;
        }
        const util::Character next = util::firstCharacter(text);
        width += widthOf(next.code);
        text.remove_prefix(next.length);
    }
    return width;
}

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const util::Character next = util::firstCharacter(text);
        const bool control = next.code < 0x20 || (next.code >= 0x7F && next.code < 0xA0);
        // Marks that reorder a line could make one name look like another.
        const bool reorders = (next.code >= 0x202A && next.code <= 0x202E) || (next.code >= 0x2066 && next.code <= 0x2069);
        if (!next.isValid) {
            out += "\xEF\xBF\xBD";
        } else if (control || reorders) {
            std::array<char, 16> escape{};
            std::snprintf(escape.data(), escape.size(), reorders ? "\\u%04x" : "\\x%02x", static_cast<unsigned>(next.code));
            out += next.code == '\n' ? "\\n" : next.code == '\t' ? "\\t" : escape.data();
        } else {
            out += text.substr(0, next.length);
        }
        text.remove_prefix(next.length);
    }
    return out;
}

std::string cutToWidth(std::string_view text, std::size_t width) {
    if (displayWidth(text) <= width) return std::string{text};
    std::string out;
    std::size_t used = 0;
    bool coloured = false;
    while (!text.empty()) {
        if (const std::size_t skip = sequenceLength(text)) {
            coloured = text.substr(0, skip) != reset;
            out += text.substr(0, skip);
            text.remove_prefix(skip);
            continue;
        }
        const util::Character next = util::firstCharacter(text);
        const std::size_t columns = widthOf(next.code);
        if (used + columns + 1 > width) break;
        used += columns;
        out += text.substr(0, next.length);
        text.remove_prefix(next.length);
    }
    if (width > 0) out += "…";
    if (coloured) out += reset;
    return out;
}

std::string styled(std::string_view text, Style style, bool colour) {
    constexpr std::array<std::string_view, 7> codes{"", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[36m"};
    if (!colour || style == Style::plain || text.empty()) return std::string{text};
    std::string out{codes.at(static_cast<std::size_t>(style))};
    out += text;
    out += reset;
    return out;
}

}  // namespace hmxctl
