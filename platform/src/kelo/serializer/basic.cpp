#include "kelo/serializer/basic.h"

#include <cmath>
#include <string_view>

#include "kelo/errors.h"
#include "kelo/record.h"

namespace kelo::serializer {

using util::config::Value;
using util::serializer::ValueType;

namespace {

bool failAt(const IStructuredPullDeserializer& reader, std::string_view what) {
    std::string text{what};
    text.append(" at byte ").append(std::to_string(reader.offset()));
    std::ErrorOutput{errors::Error, errors::readFailure, text};
    return true;
}

// A failure gives the byte offset, but not the key: it is the sender's own text, which must not get into a log.
bool readObject(IStructuredPullDeserializer& reader, util::config::Object& object) {
    if (reader.beginObject()) return true;
    for (;;) {
        bool end = false;
        std::string_view text;
        if (reader.atObjectEnd(end)) return true;
        if (end) return reader.endObject();
        if (reader.memberKey(text)) return true;
        std::string key{text};  // the view is gone once the value is read
        Value value;
        if (deserialize(reader, value) || reader.endMember()) return true;
        object.insert_or_assign(std::move(key), std::move(value));
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
    // A fraction is rounded to the nearest float, but an integer is a count or an id, and must not become another one.
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
            if (readObject(reader, object)) return true;
            value = std::move(object);
            return false;
        }
        case ValueType::string:
        case ValueType::invalid:
            break;
    }
    std::string_view text;  // if no value can begin here, this fails with the reader's own reason
    if (reader.readString(text)) return true;
    value = text;
    return false;
}

bool deserialize(IStructuredPullDeserializer& reader, std::vector<std::string>& value) {
    return record::readValue(reader, value);
}

}  // namespace kelo::serializer
