// A value of any shape, for tests and fuzzers that read and write documents without knowing what is in them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "kelo/std/error_storage.h"
#include "util/serializer/structured_serializer.h"

namespace support {

// Null also stands for what our documents do not have (plain bytes, say) or no number type holds; such values are only skipped.
struct Any {
    nlohmann::json value;
};

inline bool serialize(util::serializer::IStructuredSerializer& writer, const Any& any) {
    const nlohmann::json& value = any.value;
    bool first = true;
    switch (value.type()) {
        case nlohmann::json::value_t::object:
            if (writer.beginObject()) return true;
            for (const auto& [key, member] : value.items()) {
                if (writer.memberKey(key, first, -1) || serialize(writer, Any{member}) || writer.endMember()) return true;
                first = false;
            }
            return writer.endObject();
        case nlohmann::json::value_t::array:
            if (writer.beginArray()) return true;
            for (const auto& element : value) {
                if (writer.beginElement(first) || serialize(writer, Any{element}) || writer.endElement()) return true;
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

template <class T>
bool readOrSkip(util::serializer::IStructuredPullDeserializer& reader,
                bool (util::serializer::IStructuredPullDeserializer::*read)(T&), nlohmann::json& value) {
    T got{};
    if (!(reader.*read)(got)) {
        value = got;
        return false;
    }
    std::ErrorStorage::ack();
    return reader.skipValue();
}

inline bool deserialize(util::serializer::IStructuredPullDeserializer& reader, Any& any) {
    using Reader = util::serializer::IStructuredPullDeserializer;
    using util::serializer::ValueType;
    nlohmann::json& value = any.value;
    value = nullptr;
    bool end = false;
    switch (reader.peek()) {
        case ValueType::object:
            value = nlohmann::json::object();
            if (reader.beginObject()) return true;
            for (;;) {
                std::string_view view;
                if (reader.atObjectEnd(end)) return true;
                if (end) return reader.endObject();
                if (reader.memberKey(view)) return true;
                const std::string key{view};
                Any member;
                if (deserialize(reader, member) || reader.endMember()) return true;
                value[key] = std::move(member.value);
            }
        case ValueType::array:
            value = nlohmann::json::array();
            if (reader.beginArray()) return true;
            for (;;) {
                Any element;
                if (reader.atArrayEnd(end)) return true;
                if (end) return reader.endArray();
                if (deserialize(reader, element) || reader.endElement()) return true;
                value.push_back(std::move(element.value));
            }
        case ValueType::string: {
            std::string_view text;
            if (reader.readString(text)) return true;
            value = text;
            return false;
        }
        case ValueType::boolean: {
            bool boolean = false;
            if (reader.readBool(boolean)) return true;
            value = boolean;
            return false;
        }
        case ValueType::integer: {
            std::int64_t integer = 0;
            if (reader.readInt(integer)) {
                std::ErrorStorage::ack();
                return readOrSkip(reader, &Reader::readDouble, value);
            }
            value = integer;
            return false;
        }
        case ValueType::floating:
            return readOrSkip(reader, &Reader::readDouble, value);
        case ValueType::null:
            return reader.readNull();
        case ValueType::invalid:
            break;
    }
    return reader.skipValue();
}

}  // namespace support
