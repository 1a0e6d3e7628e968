// A value of any shape, for tests and fuzzers that read and write documents without knowing their content.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "kelo/std/error_storage.h"
#include "util/serializer/structured_serializer.h"

namespace support {

// Accepted by record operations and documents. Null also stands for values that our documents do not have (such as byte strings)
// and for numbers that fit neither type; such values are only skipped.
struct Any {
    nlohmann::json value;
};

inline bool writeAny(util::serializer::IStructuredSerializer& writer, const nlohmann::json& value) {
    bool first = true;
    switch (value.type()) {
        case nlohmann::json::value_t::object:
            if (writer.beginObject()) return true;
            for (const auto& [key, member] : value.items()) {
                if (writer.memberKey(key, first, -1) || writeAny(writer, member) || writer.endMember()) return true;
                first = false;
            }
            return writer.endObject();
        case nlohmann::json::value_t::array:
            if (writer.beginArray()) return true;
            for (const auto& element : value) {
                if (writer.beginElement(first) || writeAny(writer, element) || writer.endElement()) return true;
                first = false;
            }
            return writer.endArray();
        case nlohmann::json::value_t::string:
            return writer.writeString(value.get_ref<const std::string&>());
        case nlohmann::json::value_t::boolean:
            return writer.writeBool(value.get<bool>());
        case nlohmann::json::value_t::number_integer:
        case nlohmann::json::value_t::number_unsigned:
            return writer.writeInt(value.get<std::int64_t>());
        case nlohmann::json::value_t::number_float:
            return writer.writeDouble(value.get<double>());
        default:
            return writer.writeNull();
    }
}

inline bool readAny(util::serializer::IStructuredPullDeserializer& reader, nlohmann::json& value) {
    using util::serializer::ValueType;
    value = nullptr;
    bool end = false;
    std::string_view text;
    bool boolean = false;
    std::int64_t integer = 0;
    double floating = 0;
    switch (reader.peek()) {
        case ValueType::object:
            value = nlohmann::json::object();
            if (reader.beginObject()) return true;
            for (;;) {
                if (reader.atObjectEnd(end)) return true;
                if (end) return reader.endObject();
                if (reader.memberKey(text)) return true;
                const std::string key{text};
                nlohmann::json member;
                if (readAny(reader, member) || reader.endMember()) return true;
                value[key] = std::move(member);
            }
        case ValueType::array:
            value = nlohmann::json::array();
            if (reader.beginArray()) return true;
            for (;;) {
                nlohmann::json element;
                if (reader.atArrayEnd(end)) return true;
                if (end) return reader.endArray();
                if (readAny(reader, element) || reader.endElement()) return true;
                value.push_back(std::move(element));
            }
        case ValueType::string:
            if (reader.readString(text)) return true;
            value = text;
            return false;
        case ValueType::boolean:
            if (reader.readBool(boolean)) return true;
            value = boolean;
            return false;
        case ValueType::integer:
            if (!reader.readInt(integer)) {
                value = integer;
                return false;
            }
            std::ErrorStorage::ack();
            [[fallthrough]];
        case ValueType::floating:
            if (!reader.readDouble(floating)) {
                value = floating;
                return false;
            }
            std::ErrorStorage::ack();
            return reader.skipValue();
        case ValueType::null:
            return reader.readNull();
        case ValueType::invalid:
            break;
    }
    return reader.skipValue();
}

inline bool serialize(util::serializer::IStructuredSerializer& writer, const Any& any) {
    return writeAny(writer, any.value);
}
inline bool deserialize(util::serializer::IStructuredPullDeserializer& reader, Any& any) {
    return readAny(reader, any.value);
}

}  // namespace support
