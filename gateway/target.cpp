#include "target.h"

#include <algorithm>

#include "gateway_limits.h"
#include "util/text.h"

namespace hmxgateway {
namespace {

bool isClean(std::string_view text) {
    while (!text.empty()) {
        const util::Character next = util::firstCharacter(text);
        if (!next.isValid || next.code < 0x20 || next.code == 0x7F) return false;
        text.remove_prefix(next.length);
    }
    return true;
}

bool decode(std::string_view text, std::string& out) {
    out.clear();
    return util::percentDecode(text, out) && isClean(out);
}

// Of a query, where "+" is a blank, as forms write it.
bool decodeQuery(std::string_view text, std::string& out) {
    std::string blanks{text};
    std::replace(blanks.begin(), blanks.end(), '+', ' ');
    return decode(blanks, out);
}

std::string_view takeUntil(std::string_view& text, char divider) {
    const std::size_t end = std::min(text.find(divider), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 1));
    return taken;
}

bool readQuery(std::string_view text, Target::Query& query) {
    while (!text.empty()) {
        std::string_view value = takeUntil(text, '&');
        if (value.empty()) continue;
        auto& [key, decoded] = query.emplace_back();
        if (!decodeQuery(takeUntil(value, '='), key) || !decodeQuery(value, decoded)) return false;
        if (query.size() > limits.queryParameters) return false;
    }
    return true;
}

}  // namespace

std::optional<Target> parseTarget(std::string_view text) {
    constexpr std::string_view scheme{"http://"};
    Target target;
    if (text.starts_with(scheme)) {
        text.remove_prefix(scheme.size());
        const std::size_t slash = text.find('/');
        if (slash == 0 || slash == std::string_view::npos) return {};
        target.authority = text.substr(0, slash);
        text.remove_prefix(slash);
    }
    std::string_view path = takeUntil(text, '?');
    if (!path.starts_with('/')) return {};
    path.remove_prefix(1);
    // A slash at the end makes a last part that is empty, which nothing is called.
    while (!path.empty()) {
        const bool isLast = path.find('/') == std::string_view::npos;
        const bool endsInSlash = path.find('/') == path.size() - 1;
        if (!decode(takeUntil(path, '/'), target.parts.emplace_back())) return {};
        if (!isLast && endsInSlash) target.parts.emplace_back();
    }
    if (!readQuery(text, target.query)) return {};
    return target;
}

std::string encodedPart(std::string_view part) {
    std::string out;
    util::appendPercentEncoded(out, part, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.' ||
               c == '~';
    });
    return out;
}

}  // namespace hmxgateway
