#include "kelo/serializer/basic.h"

#include <cmath>
#include <limits>
#include <string_view>

#include "kelo/errors.h"
#include "kelo/record.h"

namespace kelo::serializer {

using toluglobals::ToluParams;
using util::config::Value;
using util::serializer::ValueType;

namespace {

bool fail(std::string_view what) {
    std::ErrorOutput{errors::Error, errors::readFailure, what};
    return true;
}

bool failAt(const IStructuredPullDeserializer& reader, std::string_view what) {
    std::string text{what};
    text.append(" at byte ").append(std::to_string(reader.offset()));
    return fail(text);
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

// A parameter that the protocol knows: `take` reads it into its member, `isSet` and `write` go the other way.
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

// Reads an object of any keys; `take` gets each with its value.
template <class F>
bool readEntries(IStructuredPullDeserializer& reader, F&& take) {
    if (reader.beginObject()) return true;
    for (;;) {
        bool end = false;
        std::string_view text;
        if (reader.atObjectEnd(end)) return true;
        if (end) return reader.endObject();
        if (reader.memberKey(text)) return true;
        std::string key{text};  // the view is gone once the value is read
        Value value;
        if (deserialize(reader, value) || take(key, std::move(value))) return record::detail::failedIn(key);
        if (reader.endMember()) return true;
    }
}

}  // namespace

bool serialize(IStructuredSerializer& writer, int value) {
    return writer.writeInt(value);
}

bool serialize(IStructuredSerializer& writer, bool value) {
    return writer.writeBool(value);
}

bool serialize(IStructuredSerializer& writer, float value) {
    return writer.writeFloat(value);
}

bool serialize(IStructuredSerializer& writer, const std::string& value) {
    return writer.writeString(value);
}

bool serialize(IStructuredSerializer& writer, const std::UUID& value) {
    return writer.writeUuid(value);
}

bool serialize(IStructuredSerializer& writer, const kelo::url& value) {
    return writer.writeUrl(value);
}

bool serialize(IStructuredSerializer& writer, const toluglobals::RequestHint& value) {
    return record::write(writer, value);
}

bool serialize(IStructuredSerializer& writer, const ToluParams& value) {
    if (writer.beginObject()) return true;
    bool first = true;
    for (const auto& [key, parameter] : value.values.entries()) {
        const auto* knownParameter = findKnown(key);
        if (knownParameter != nullptr && knownParameter->isSet(value)) continue;  // its member says it better
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

bool serialize(IStructuredSerializer& writer, const Value& value) {
    if (const auto* boolean = value.asBool()) return writer.writeBool(*boolean);
    if (const auto* integer = value.asInt()) return writer.writeInt(*integer);
    if (const auto* floating = value.asDouble()) return writer.writeDouble(*floating);
    if (const auto* text = value.asString()) return writer.writeString(*text);
    if (const auto* array = value.asArray()) return record::writeValue(writer, *array);
    if (const auto* object = value.asObject()) {
        bool first = true;
        if (writer.beginObject()) return true;
        for (const auto& [key, member] : *object) {
            if (writer.memberKey(key, first, -1) || serialize(writer, member) || writer.endMember()) return true;
            first = false;
        }
        return writer.endObject();
    }
    return writer.writeNull();
}

bool deserialize(IStructuredPullDeserializer& reader, int& value) {
    return record::readValue(reader, value);
}

bool deserialize(IStructuredPullDeserializer& reader, bool& value) {
    return record::readValue(reader, value);
}

bool deserialize(IStructuredPullDeserializer& reader, float& value) {
    double wide = 0;
    const bool isInteger = reader.peek() == ValueType::integer;
    if (reader.readDouble(wide)) return true;
    value = static_cast<float>(wide);
    // A fraction is rounded to what a float can hold; a count or an id must not become another one.
    if (isInteger && static_cast<double>(value) != wide) return failAt(reader, "an integer that no float is equal to");
    return !std::isfinite(value) && failAt(reader, "number outside the range of a float");
}

bool deserialize(IStructuredPullDeserializer& reader, std::string& value) {
    return record::readValue(reader, value);
}

bool deserialize(IStructuredPullDeserializer& reader, std::UUID& value) {
    return reader.readUuid(value);
}

bool deserialize(IStructuredPullDeserializer& reader, kelo::url& value) {
    return reader.readUrl(value);
}

bool deserialize(IStructuredPullDeserializer& reader, toluglobals::RequestHint& value) {
    return record::read(reader, value);
}

bool deserialize(IStructuredPullDeserializer& reader, ToluParams& value) {
    value = {};
    return readEntries(reader, [&](const std::string& key, Value parameter) {
        if (const auto* knownParameter = findKnown(key)) {
            knownParameter->clear(value);
            if (!parameter.isNull() && knownParameter->take(parameter, value)) return true;
        }
        value.values.set(key, std::move(parameter));
        return false;
    });
}

bool deserialize(IStructuredPullDeserializer& reader, Value& value) {
    switch (reader.peek()) {
        case ValueType::null: {
            value = {};
            return reader.readNull();
        }
        case ValueType::boolean: {
            bool boolean = false;
            if (reader.readBool(boolean)) return true;
            value = boolean;
            return false;
        }
        case ValueType::integer: {
            std::int64_t integer = 0;
            if (reader.readInt(integer)) return true;
            value = integer;
            return false;
        }
        case ValueType::floating: {
            double floating = 0;
            if (reader.readDouble(floating)) return true;
            value = floating;
            return false;
        }
        case ValueType::array: {
            util::config::Array array;
            if (record::readValue(reader, array)) return true;
            value = std::move(array);
            return false;
        }
        case ValueType::object: {
            util::config::Object object;
            const auto take = [&](std::string& key, Value&& member) {
                object.insert_or_assign(std::move(key), std::move(member));
                return false;
            };
            if (readEntries(reader, take)) return true;
            value = std::move(object);
            return false;
        }
        case ValueType::string:
        case ValueType::invalid:
            break;
    }
    std::string_view text;  // what cannot begin a value fails here, with the reader's own reason
    if (reader.readString(text)) return true;
    value = text;
    return false;
}

bool deserialize(IStructuredPullDeserializer& reader, std::vector<std::string>& value) {
    return record::readValue(reader, value);
}

}  // namespace kelo::serializer
