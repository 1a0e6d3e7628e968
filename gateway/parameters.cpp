#include "parameters.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "hmx/client/schema.h"

namespace hmxgateway {
namespace {

using hmx::client::Error;
using Json = hmx::client::Json;
using kelo::record::Kind;

constexpr std::array<std::string_view, 3> pagingKeys{"limit", "offset", "offsetId"};

Error invalid(const std::string& key, const std::string& what) {
    return Error{Error::Kind::invalid, key + ": " + what};
}

template <class Number>
Json number(const std::string& key, const std::string& value, const char* what) {
    Number read{};
    const auto end = std::from_chars(value.data(), value.data() + value.size(), read);
    if (end.ec != std::errc{} || end.ptr != value.data() + value.size()) throw invalid(key, "\"" + value + "\" is not " + what);
    return read;
}

Json typed(const std::string& key, const std::string& value, const hmx::client::MemberDescription& member) {
    switch (member.kind) {
        case Kind::integer:
            return number<int>(key, value, "an integer of 32 bits");
        case Kind::floating:
            return number<double>(key, value, "a number");
        case Kind::boolean:
            if (value != "true" && value != "false") throw invalid(key, "\"" + value + "\" is neither true nor false");
            return value == "true";
        default:
            return value;
    }
}

void appendEntries(Json& list, std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(','), text.size());
        if (end > 0) list.push_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
}

}  // namespace

Json parametersFrom(const Target::Query& query, const hmx::client::Resource& resource, Asked asked) {
    if (query.empty()) return nullptr;
    const hmx::client::Members known = parametersOf(resource);
    const std::string origin{resource.name};
    Json parameters = Json::object();
    for (const auto& [key, value] : query) {
        const hmx::client::MemberDescription* member = hmx::client::findMember(known, key);
        if (member == nullptr) throw hmx::client::unknownMember(origin, key, resource.element().name, known);
        const bool isPaging = std::find(pagingKeys.begin(), pagingKeys.end(), key) != pagingKeys.end();
        if (asked == Asked::element && key != "fields") throw invalid(key, "has no effect on a single element; only fields has");
        if (asked == Asked::watch && isPaging) throw invalid(key, "pages cannot be watched, only whole lists");
        if (member->isArray && key == "fields") {
            if (!parameters.contains(key)) parameters[key] = Json::array();
            appendEntries(parameters[key], value);
            continue;
        }
        if (parameters.contains(key)) throw invalid(key, "is given twice");
        parameters[key] = typed(key, value, *member);
    }
    hmx::client::checkParameters(parameters, known, resource.element(), origin);
    return parameters;
}

}  // namespace hmxgateway
