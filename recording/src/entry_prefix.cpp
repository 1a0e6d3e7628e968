#include "entry_prefix.h"

#include <array>
#include <charconv>

namespace hmx::recording {
namespace {

bool take(std::string_view& text, std::string_view symbol) noexcept {
    if (!text.starts_with(symbol)) return false;
    text.remove_prefix(symbol.size());
    return true;
}

template <class Number>
bool takeNumber(std::string_view& text, Number& number) noexcept {
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end.ptr - text.data()));
    return end.ec == std::errc{};
}

// Up to and with the closing quote of a string whose opening one was taken.
bool skipString(std::string_view& text) noexcept {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\')
            ++i;
        else if (text[i] == '"') {
            text.remove_prefix(i + 1);
            return true;
        }
    }
    return false;
}

// Up to and with the closing brace of an object whose opening one was taken.
bool skipObject(std::string_view& text) noexcept {
    for (std::size_t depth = 1; depth > 0;) {
        const std::size_t at = text.find_first_of("\"{}");
        if (at == std::string_view::npos) return false;
        const char c = text[at];
        text.remove_prefix(at + 1);
        if (c == '"' && !skipString(text)) return false;
        if (c == '{') ++depth;
        if (c == '}') --depth;
    }
    return true;
}

}  // namespace

bool readPrefix(std::string_view line, EntryPrefix& prefix) noexcept {
    if (!line.ends_with('}')) return false;
    std::int64_t at = 0;
    if (!take(line, "{\"t\":") || !takeNumber(line, at) || at < 0) return false;
    if (!take(line, ",\"n\":") || !takeNumber(line, prefix.number)) return false;
    prefix.at = std::chrono::nanoseconds{at};
    const std::string_view rest = line;
    if (!take(line, ",\"service\":\"") || !skipString(line) || !take(line, ",\"path\":\"") || !skipString(line)) return false;
    if (take(line, ",\"parameters\":{") && !skipObject(line)) return false;
    prefix.source = rest.substr(0, rest.size() - line.size());
    if (!take(line, ",\"event\":\"")) return false;
    for (const EntryKind kind :
         {EntryKind::state, EntryKind::change, EntryKind::lost, EntryKind::missing, EntryKind::ended, EntryKind::failed}) {
        const std::string_view name = nameOf(kind);
        if (line.starts_with(name) && line.substr(name.size()).starts_with('"')) {
            prefix.kind = kind;
            return true;
        }
    }
    return false;
}

}  // namespace hmx::recording
