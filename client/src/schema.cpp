#include "hmx/client/schema.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "hmx/client/suggest.h"
#include "kelo/std/uuid.h"

namespace hmx::client {
namespace {

using kelo::record::Kind;

Error invalid(const std::string& what, std::string hint = {}) {
    return Error{Error::Kind::invalid, what, std::move(hint)};
}

bool isInt32(const Json& value) {
    if (!value.is_number_integer()) return false;
    if (value.is_number_unsigned()) return value.get<std::uint64_t>() <= std::numeric_limits<std::int32_t>::max();
    const auto number = value.get<std::int64_t>();
    return number >= std::numeric_limits<std::int32_t>::min() && number <= std::numeric_limits<std::int32_t>::max();
}

std::vector<std::string> words(std::span<const std::string_view> views) {
    return {views.begin(), views.end()};
}

// Walks a document along its description. `path` is that of the value at hand.
class Checker {
public:
    explicit Checker(const std::string& origin, bool whole = true) : origin_{origin}, whole_{whole} {}

    void record(const Json& value, const Description& description, const std::string& path) const {
        if (!value.is_object()) fail(path, "a " + std::string{description.name} + " is an object, this is " + what(value));
        for (const auto& [key, each] : value.items()) {
            const MemberDescription* found = findMember(description.members, key);
            const std::string inner = path.empty() ? key : path + "." + key;
            if (found == nullptr) throw unknownMember(origin_ + ": " + inner, key, description.name, description.members);
            member(each, *found, inner);
        }
        for (const MemberDescription& each : description.members) {
            if (whole_ && each.isRequired && member_(value, each.key).is_null()) {
                fail(path.empty() ? std::string{each.key} : path + "." + std::string{each.key}, "is required");
            }
        }
    }

    void member(const Json& value, const MemberDescription& description, const std::string& path) const {
        if (value.is_null()) {
            if (description.isRequired) fail(path, "is required and cannot be null");
            return;
        }
        if (!description.isArray) return single(value, description, path);
        if (!value.is_array()) fail(path, "takes an " + kelo::record::typeText(description) + ", not " + what(value));
        for (std::size_t i = 0; i < value.size(); ++i) single(value[i], description, path + "[" + std::to_string(i) + "]");
    }

private:
    static const Json& member_(const Json& object, std::string_view key) { return client::member(object, key); }

    [[noreturn]] void fail(const std::string& path, const std::string& fault, const std::string& hint = {}) const {
        throw invalid(origin_ + ": " + (path.empty() ? "" : path + ": ") + fault, hint);
    }

    static std::string what(const Json& value) {
        std::string text = compact(value);
        if (text.size() > 40) text = text.substr(0, 37) + "...";
        return text;
    }

    void single(const Json& value, const MemberDescription& description, const std::string& path) const {
        const auto expect = [&](bool fits, const char* type) {
            if (!fits) fail(path, "takes " + std::string{type} + ", not " + what(value));
        };
        switch (description.kind) {
            case Kind::integer:
                return expect(isInt32(value), "an integer of 32 bits");
            case Kind::boolean:
                return expect(value.is_boolean(), "true or false");
            case Kind::floating:
                return expect(value.is_number(), "a number");
            case Kind::string:
            case Kind::url:
                return expect(value.is_string(), "a string");
            case Kind::uuid: {
                std::UUID id;
                return expect(value.is_string() && std::UUID::parse(value.get_ref<const std::string&>(), id), "a UUID");
            }
            case Kind::enumeration: {
                const std::vector<std::string> names = words(description.enumValues);
                if (value.is_string() && std::find(names.begin(), names.end(), value.get<std::string>()) != names.end()) return;
                fail(path, "takes one of " + joined(names) + ", not " + what(value));
            }
            case Kind::record:
                return record(value, description.nested(), path);
        }
    }

    const std::string& origin_;
    bool whole_;
};

}  // namespace

const MemberDescription* findMember(Members members, std::string_view key) noexcept {
    for (const MemberDescription& member : members) {
        if (member.key == key) return &member;
    }
    return nullptr;
}

std::vector<std::string> keysOf(Members members) {
    std::vector<std::string> keys;
    for (const MemberDescription& member : members) keys.emplace_back(member.key);
    return keys;
}

Error unknownMember(const std::string& where, std::string_view key, std::string_view owner, Members members) {
    const std::vector<std::string> keys = keysOf(members);
    const std::string meant = didYouMean(key, keys);
    return invalid(where + ": no such key in " + std::string{owner}, meant.empty() ? "keys: " + joined(keys) : meant);
}

void checkBody(const Json& body, const Description& record, const std::string& origin) {
    Checker{origin}.record(body, record, "");
}

void checkPatch(const Json& patch, const Description& record, const std::string& origin) {
    Checker{origin, false}.record(patch, record, "");
}

void checkParameters(const Json& parameters, Members known, const Description& record, const std::string& origin) {
    for (const auto& [key, value] : parameters.items()) {
        const MemberDescription* found = findMember(known, key);
        if (found == nullptr) throw unknownMember(origin + ": " + key, key, "the parameters", known);
        const bool comparable = found->kind != Kind::record && (!found->isArray || key == "fields") && !value.is_null();
        if (!comparable) {
            throw invalid(origin + ": " + key + ": elements cannot be selected by an object, an array or null",
                          "members with plain values can be compared: name=TEXT, for example");
        }
        Checker{origin}.member(value, *found, key);
        const int least = key == "limit" ? 1 : 0;
        if ((key == "limit" || key == "offset") && value < least) {
            throw invalid(origin + ": " + key + " takes a number from " + std::to_string(least));
        }
    }
    for (const Json& field : member(parameters, "fields")) {
        const std::string name = field.is_string() ? field.get<std::string>() : "";
        if (!name.empty() && findMember(record.members, name) == nullptr) {
            throw unknownMember(origin + ": fields: " + name, name, record.name, record.members);
        }
    }
}

void checkMemberPath(const std::string& path, const Description& record, const std::string& origin) {
    const Description* at = &record;
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('.', begin), path.size());
        const std::string step = path.substr(begin, end - begin);
        const std::string key = step.substr(0, step.find('['));
        const MemberDescription* found = at == nullptr ? nullptr : findMember(at->members, key);
        if (found == nullptr && at == nullptr) throw invalid(origin + ": " + path + ": nothing stands below that member");
        if (found == nullptr) throw unknownMember(origin + ": " + path, key, at->name, at->members);
        at = found->kind == Kind::record ? &found->nested() : nullptr;
        begin = end + 1;
    }
}

}  // namespace hmx::client
