#include "assignments.h"

#include <charconv>
#include <cstdint>

#include "typed_json.h"

namespace hmxctl {
namespace {

using kelo::record::Kind;

template <class Number>
Json number(const Assignment& assignment, const char* type) {
    Number value{};
    const char* last = assignment.text.data() + assignment.text.size();
    const auto end = std::from_chars(assignment.text.data(), last, value);
    if (end.ec == std::errc{} && end.ptr == last) return value;
    throw usageError(assignment.key + "=" + assignment.text + ": " + assignment.key + " takes " + type);
}

Json boolean(const Assignment& assignment) {
    if (assignment.text == "true") return true;
    if (assignment.text == "false") return false;
    throw usageError(assignment.key + "=" + assignment.text + ": " + assignment.key + " takes true or false");
}

Json list(const std::string& text) {
    Json strings = Json::array();
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        if (end > begin) strings.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return strings;
}

Json typed(const Assignment& assignment, const MemberDescription* member) {
    if (assignment.json) return parseJson(assignment.text, assignment.key);
    if (member == nullptr) return assignment.text;
    const bool textual = member->kind == Kind::string || member->kind == Kind::url || member->kind == Kind::uuid ||
                         member->kind == Kind::enumeration;
    if (member->isArray && textual) return list(assignment.text);
    if (member->isArray || member->kind == Kind::record) return parseJson(assignment.text, assignment.key);
    if (member->kind == Kind::integer) return number<std::int32_t>(assignment, "an integer of 32 bits");
    if (member->kind == Kind::floating) return number<double>(assignment, "a number");
    if (member->kind == Kind::boolean) return boolean(assignment);
    return assignment.text;
}

}  // namespace

std::optional<Assignment> asAssignment(std::string_view word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string_view::npos) return {};
    const bool json = equals > 0 && word[equals - 1] == ':';
    const std::string_view key = word.substr(0, json ? equals - 1 : equals);
    if (key.empty()) return {};
    return Assignment{std::string{key}, std::string{word.substr(equals + 1)}, json};
}

std::vector<Assignment> asAssignments(std::span<const std::string> words) {
    std::vector<Assignment> assignments;
    for (const std::string& word : words) {
        std::optional<Assignment> assignment = asAssignment(word);
        if (!assignment) throw usageError("'" + word + "' is not KEY=VALUE or KEY:=JSON");
        assignments.push_back(std::move(*assignment));
    }
    return assignments;
}

void assign(Json& document, const std::vector<Assignment>& assignments, Members members, bool strict) {
    if (document.is_null()) document = Json::object();
    if (!assignments.empty() && !document.is_object()) {
        throw usageError("keys can be set in an object only, the body is " + std::string{document.type_name()});
    }
    for (const Assignment& assignment : assignments) {
        Json& value = document[assignment.key];
        try {
            value = typed(assignment, findMember(members, assignment.key));
        } catch (const Failure&) {
            if (strict || assignment.json) throw;
            value = assignment.text;
        }
    }
}

}  // namespace hmxctl
