#include "policy/pattern.h"

#include <algorithm>

#include "kelo/std/uuid.h"
#include "util/text.h"

// A resource may be spelt in several ways: services decode "%XX" in names, and read the digits of an id in either case. A rule
// about a resource has to hold for all of its spellings, or a client would choose the one that the rule forgot. So what a request
// names, and what a rule names, are brought into one spelling before they are compared.

namespace kelo::policy {

bool takePart(std::string_view& path, std::string_view& part) noexcept {
    if (path.empty()) return false;
    if (path.front() == '/') path.remove_prefix(1);
    const auto slash = path.find('/');
    part = path.substr(0, slash);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash);
    return true;
}

std::string canonical(std::string_view part) {
    std::string decoded;
    if (!util::percentDecode(part, decoded)) decoded = part;
    std::UUID id;
    return std::UUID::parse(decoded, id) ? id.toString() : decoded;
}

std::optional<Pattern> Pattern::parse(std::string_view text, std::string& why) {
    Pattern pattern;
    pattern.isOpen_ = false;
    if (text.empty() || text.front() != '/') {
        why = "does not begin with a slash";
        return {};
    }
    std::string_view part;
    for (std::string_view rest = text; takePart(rest, part);) {
        std::string ignored;
        if (part == "**") {
            pattern.isOpen_ = rest.empty();
            if (pattern.isOpen_) return pattern;
            why = "has '**' before its last part";
        } else if (part == "*") {
            pattern.parts_.push_back({true, {}});
            continue;
        } else if (part.find('*') != std::string_view::npos) {
            why = "has '*' within a part; it stands for a whole one";
        } else if (part.empty() && text.size() > 1) {
            why = "has an empty part";
        } else if (!util::percentDecode(part, ignored)) {
            why = "has a part with a '%' that no two digits follow";
        } else {
            pattern.parts_.push_back({false, canonical(part)});
            continue;
        }
        return {};
    }
    return pattern;
}

bool Pattern::matches(std::string_view path) const {
    std::string_view part;
    for (const Part& wanted : parts_) {
        if (!takePart(path, part) || !wanted.covers({false, canonical(part)})) return false;
    }
    return isOpen_ || path.empty();
}

std::string Pattern::toString() const {
    // What would be read as something else is encoded again.
    const auto isPlain = [](char c) { return c > ' ' && c <= '~' && c != '/' && c != '*' && c != '%'; };
    std::string text;
    for (const Part& part : parts_) {
        text += '/';
        if (part.isAny) {
            text += '*';
        } else {
            util::appendPercentEncoded(text, part.text, isPlain);
        }
    }
    return isOpen_ ? text + "/**" : text;
}

bool Pattern::isWithin(const Pattern& other) const noexcept {
    if (parts_.size() < other.parts_.size()) return false;
    if (!other.isOpen_ && (isOpen_ || parts_.size() != other.parts_.size())) return false;
    return std::equal(other.parts_.begin(), other.parts_.end(), parts_.begin(),
                      [](const Part& wide, const Part& narrow) { return wide.covers(narrow); });
}

}  // namespace kelo::policy
