// Reads and writes whole documents of any type, with one reader and one writer for each encoding and thread.
#pragma once

#include <cstdint>
#include <span>

#include "kelo/payload.h"
#include "kelo/record.h"
#include "util/byte_buffer.h"

namespace kelo {

// A reference to a value of any record type that is to be written. Thread: as for the value.
struct BodyView {
    const void* value = nullptr;
    bool (*write)(serializer::IStructuredSerializer&, const void*) = nullptr;

    template <class Body>
    static BodyView of(const Body& body) {
        return {&body, [](serializer::IStructuredSerializer& writer, const void* object) {
                    return record::writeValue(writer, *static_cast<const Body*>(object));
                }};
    }
};

// A reference to a value of any record type that is to be filled. Thread: as for the value.
struct ResultView {
    void* value;
    bool (*read)(serializer::IStructuredPullDeserializer&, void*);

    template <class Result>
    static ResultView of(Result& result) {
        return {&result, [](serializer::IStructuredPullDeserializer& reader, void* object) {
                    return record::readValue(reader, *static_cast<Result*>(object));
                }};
    }
};

// Appends the value's document to `buffer`. True on failure, with the reason in the error store: unknownMimeType and the mime
// type's text if the type has no structured encoding. Thread: any.
[[nodiscard]] bool writeDocument(util::ByteBufferWriter& buffer, const MimeType& mimeType, BodyView body);

// Reads the whole document into the value. True on failure, with the reason as above. Thread: any.
[[nodiscard]] bool readDocument(std::span<const std::uint8_t> document, const MimeType& mimeType, ResultView result);

}  // namespace kelo
