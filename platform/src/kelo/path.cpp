#include "kelo/path.h"

#include "util/text.h"

namespace kelo {
namespace {

// Removes the next part from the front of a path: the text between its leading "/" and the next one. False if there is none.
bool nextPart(std::string_view& rest, std::string_view& part) noexcept {
    if (rest.empty() || rest.front() != '/') return false;
    rest.remove_prefix(1);
    const auto slash = rest.find('/');
    part = rest.substr(0, slash);
    rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash);
    return true;
}

bool isPlain(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return c != '/' && c != '%' && byte >= 0x20 && byte != 0x7f;
}

}  // namespace

bool Path::matches(std::string_view path, std::string_view pattern) noexcept {
    if (path.size() < pattern.size()) return false;  // a star matches at least one character
    std::string_view part;
    std::string_view wanted;
    while (nextPart(pattern, wanted)) {
        if (!nextPart(path, part)) return false;
        if (wanted == "*" ? part.empty() : part != wanted) return false;
    }
    return path.empty();
}

int Path::indexIntoPathFromPattern(std::string_view pattern, int n) noexcept {
    std::string_view part;
    for (int index = 0; nextPart(pattern, part); ++index) {
        if (part == "*" && n-- == 0) return index;
    }
    return -1;
}

std::string Path::replacePattern(std::string_view pattern, std::initializer_list<std::string_view> arguments) {
    if (arguments.size() == 0) return std::string{pattern};
    std::string path;
    path.reserve(pattern.size() + 40);
    const auto* argument = arguments.begin();
    for (std::string_view part; nextPart(pattern, part);) {
        path += '/';
        if (part == "*" && argument != arguments.end()) {
            util::appendPercentEncoded(path, *argument++, isPlain);
        } else {
            path += part;
        }
    }
    return path;
}

std::string Path::toString(int number) {
    return std::to_string(number);
}

std::string_view Path::rawPart(int index) const noexcept {
    std::string_view rest = text_;
    std::string_view part;
    for (int at = 0; nextPart(rest, part); ++at) {
        if (at == index) return part;
    }
    return {};
}

bool Path::part(int index, std::string& out) const {
    const std::string_view raw = rawPart(index);
    return !raw.empty() && util::percentDecode(raw, out);
}

bool Path::part(int index, std::UUID& out) const {
    return std::UUID::parse(rawPart(index), out);
}

}  // namespace kelo
