// Parameters come as one map. Those that the protocol itself defines have members in ToluParams. Any other is a value that
// restricts a list, if the list's elements have a member of that name and the value has a type that the member may equal.
// Parameters that cannot change the answer are skipped and not kept. All parameters are counted to the end, so that a refusal can
// give their number.
#include "kelo/tolu/parameters.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo/errors.h"
#include "kelo/limits.h"
#include "kelo/serializer/basic.h"

namespace kelo {

using serializer::IStructuredPullDeserializer;
using serializer::IStructuredSerializer;
using toluglobals::ToluParams;
using util::config::Value;
using util::serializer::ValueType;

namespace {

bool fail(std::string_view what) {
    std::ErrorOutput{errors::Error, errors::readFailure, what};
    return true;
}

bool takeInt(const Value& value, int least, kelo::optional<int>& out) {
    const auto* number = value.asInt();
    if (number == nullptr || *number < least || *number > std::numeric_limits<int>::max()) {
        return fail("not an integer from " + std::to_string(least) + " to 2147483647");
    }
    out = static_cast<int>(*number);
    return false;
}

bool takeId(const Value& value, kelo::optional<std::UUID>& out) {
    const auto* text = value.asString();
    std::UUID id;
    if (text == nullptr || !std::UUID::parse(*text, id)) return fail("not a UUID");
    out = id;
    return false;
}

bool takeNames(const Value& value, kelo::optional<std::vector<std::string>>& out) {
    const auto* array = value.asArray();
    if (array == nullptr) return fail("not a list of strings");
    std::vector<std::string> names;
    names.reserve(array->size());
    for (const auto& element : *array) {
        const auto* name = element.asString();
        if (name == nullptr) return fail("not a list of strings");
        names.push_back(*name);
    }
    out = std::move(names);
    return false;
}

// A parameter that the protocol defines: `take` reads it into its member; `isSet` and `write` are for writing it.
struct KnownParameter {
    std::string_view key;
    void (*clear)(ToluParams&);
    bool (*take)(const Value&, ToluParams&);
    bool (*isSet)(const ToluParams&);
    bool (*write)(IStructuredSerializer&, const ToluParams&);
};

template <auto Member>
constexpr KnownParameter known(std::string_view key, bool (*take)(const Value&, ToluParams&)) {
    return {
        key, [](ToluParams& params) { params.*Member = {}; }, take, [](const ToluParams& params) { return bool(params.*Member); },
        [](IStructuredSerializer& writer, const ToluParams& params) { return record::writeValue(writer, *(params.*Member)); }};
}

constexpr KnownParameter kKnown[] = {
    known<&ToluParams::fields>("fields", [](const Value& value, ToluParams& params) { return takeNames(value, params.fields); }),
    known<&ToluParams::limit>("limit", [](const Value& value, ToluParams& params) { return takeInt(value, 1, params.limit); }),
    known<&ToluParams::offset>("offset", [](const Value& value, ToluParams& params) { return takeInt(value, 0, params.offset); }),
    known<&ToluParams::offsetId>("offsetId",
                                 [](const Value& value, ToluParams& params) { return takeId(value, params.offsetId); }),
};

const KnownParameter* findKnown(std::string_view key) noexcept {
    for (const auto& parameter : kKnown) {
        if (parameter.key == key) return &parameter;
    }
    return nullptr;
}

// Reads a map of parameters; take(key) reads the value of each. The key is valid until the value is read.
template <class Take>
bool readMap(IStructuredPullDeserializer& reader, Take take) {
    constexpr std::size_t most = Limits{}.parameters;
    std::size_t count = 0;
    if (reader.beginObject()) return true;
    for (;;) {
        bool end = false;
        std::string_view key;
        if (reader.atObjectEnd(end)) return true;
        if (end) break;
        if (reader.memberKey(key)) return true;
        if (++count > most ? reader.skipValue() : take(key)) return true;
        if (reader.endMember()) return true;
    }
    if (count > most) return fail(std::to_string(count) + " parameters; the limit is " + std::to_string(most));
    return reader.endObject();
}

bool readKnown(IStructuredPullDeserializer& reader, const KnownParameter& known, Value& value, ToluParams& params) {
    known.clear(params);
    if (!serializer::deserialize(reader, value) && (value.isNull() || !known.take(value, params))) return false;
    return record::detail::failedIn(known.key);
}

const record::MemberDescription* findMember(const record::Description* element, std::string_view key) noexcept {
    if (element == nullptr) return nullptr;
    const auto found = std::find_if(element->members.begin(), element->members.end(),
                                    [&](const record::MemberDescription& member) { return member.key == key; });
    return found == element->members.end() ? nullptr : &*found;
}

// Whether a value of this type can match the member; an array can match only an array.
bool mayBeWanted(ValueType type, const record::MemberDescription& member) noexcept {
    const bool isScalar = type != ValueType::null && type != ValueType::array && type != ValueType::object;
    return member.kind != record::Kind::record && (isScalar || (member.isArray && type == ValueType::array));
}

std::size_t textBytes(const Value& value) noexcept {
    if (const auto* text = value.asString()) return text->size();
    std::size_t bytes = 0;
    if (const auto* array = value.asArray()) {
        for (const Value& element : *array) bytes += sizeof(Value) + textBytes(element);
    }
    return bytes;
}

void keepMembers(std::vector<std::string>& names, const record::Description& element) {
    std::vector<std::string> kept;
    for (const record::MemberDescription& member : element.members) {
        if (std::find(names.begin(), names.end(), member.key) != names.end()) kept.emplace_back(member.key);
    }
    names = std::move(kept);
}

}  // namespace

bool serializer::serialize(IStructuredSerializer& writer, const ToluParams& value) {
    if (writer.beginObject()) return true;
    bool first = true;
    for (const auto& [key, parameter] : value.values.entries()) {
        const auto* knownParameter = findKnown(key);
        if (knownParameter != nullptr && knownParameter->isSet(value)) continue;  // is written from its member
        if (writer.memberKey(key, first, -1) || serialize(writer, parameter) || writer.endMember()) return true;
        first = false;
    }
    for (const auto& parameter : kKnown) {
        if (!parameter.isSet(value)) continue;
        if (writer.memberKey(parameter.key, first, -1) || parameter.write(writer, value) || writer.endMember()) return true;
        first = false;
    }
    return writer.endObject();
}

bool serializer::deserialize(IStructuredPullDeserializer& reader, ToluParams& value) {
    value = {};
    return readMap(reader, [&](std::string_view text) {
        const std::string key{text};
        Value parameter;
        const auto* const known = findKnown(key);
        if (known != nullptr ? readKnown(reader, *known, parameter, value) : deserialize(reader, parameter)) return true;
        value.values.set(key, std::move(parameter));
        return false;
    });
}

bool tolu::deserialize(IStructuredPullDeserializer& reader, const RelevantParams& relevant) {
    ToluParams& params = relevant.params;
    params = {};
    const bool failed = readMap(reader, [&](std::string_view key) {
        Value value;
        if (const auto* const known = findKnown(key)) return readKnown(reader, *known, value, params);
        const auto* const member = relevant.isList ? findMember(relevant.element, key) : nullptr;
        if (member == nullptr) return reader.skipValue();
        params.values.erase(member->key);  // the last one takes effect
        if (!mayBeWanted(reader.peek(), *member)) return reader.skipValue();
        if (serializer::deserialize(reader, value)) return record::detail::failedIn(member->key);
        params.values.set(member->key, std::move(value));
        return false;
    });
    if (failed) return true;
    if (params.fields && relevant.element != nullptr) keepMembers(*params.fields, *relevant.element);
    constexpr std::size_t most = Limits{}.parameterBytes;
    std::size_t bytes = 0;
    for (const auto& [key, value] : params.values.entries()) bytes += textBytes(value);
    return bytes > most && fail("parameters of " + std::to_string(bytes) + " bytes; the limit is " + std::to_string(most));
}

}  // namespace kelo
