// Documents for tests: converts values that a record's member may have, and records, to text and back.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kelo/record.h"
#include "kelo/serializer/factory.h"

namespace support {

using kelo::mimetypes::MimeTypeID;

// "" on success, otherwise the reason of the failure, which is consumed.
template <class T>
std::string writeDocument(MimeTypeID mimeType, const T& value, std::string& document) {
    util::ByteBufferWriter bytes;
    const auto writer = kelo::serializer::Factory::createSerializer(mimeType);
    if (writer == nullptr) return "no serializer";
    if (writer->start(bytes) || kelo::record::writeValue(*writer, value) || writer->finish())
        return std::ErrorStorage::takeReason();
    document.assign(bytes.bytes().begin(), bytes.bytes().end());
    return "";
}

template <class T>
std::string readDocument(MimeTypeID mimeType, std::string_view document, T& value) {
    const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
    if (reader == nullptr) return "no deserializer";
    if (reader->start(util::ByteBufferReader{document}) || kelo::record::readValue(*reader, value) || reader->finish()) {
        return std::ErrorStorage::takeReason();
    }
    return "";
}

// The value as compact JSON; a failure fails the test.
template <class T>
std::string toJson(const T& value) {
    std::string document;
    EXPECT_EQ(writeDocument(MimeTypeID::json, value, document), "");
    return document;
}

template <class T>
T fromJson(std::string_view json) {
    T value{};
    EXPECT_EQ(readDocument(MimeTypeID::json, json, value), "") << json;
    return value;
}

}  // namespace support
