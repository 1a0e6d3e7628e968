// What the fuzzers of all encodings check, for any bytes.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

#include "kelo/errors.h"
#include "kelo/serializer/factory.h"
#include "support/any_value.h"

namespace fuzz {

using kelo::mimetypes::MimeTypeID;
using Bytes = std::span<const std::uint8_t>;

inline void require(bool holds, const char* what) {
    if (holds) return;
    const std::string reason = std::ErrorStorage::reason();
    std::fprintf(stderr, "does not hold: %s (%s)\n", what, reason.c_str());
    std::abort();
}

// Whether `read` reads the bytes as a whole document. A failure must be recorded, success must not.
template <class Read>
bool accepts(util::serializer::IStructuredPullDeserializer& reader, Bytes bytes, Read read) {
    const bool failed = reader.start(util::ByteBufferReader{bytes}) || read(reader) || reader.finish();
    require(reader.offset() <= bytes.size(), "the reader stands within the document");
    const std::ErrorEntry error = std::ErrorStorage::current();
    if (!failed) {
        require(error.category == nullptr, "success records no error");
        return true;
    }
    require(error.category == &kelo::errors::Error && error.code == kelo::errors::readFailure, "a failure says that it is one");
    // The place is a byte offset or, if a record needs what the document does not have, the path of the member.
    const auto says = [&](std::string_view what) { return error.text.find(what) != std::string_view::npos; };
    require(says(" at byte ") || says(": "), "a failure says where it is");
    std::ErrorStorage::ack();
    return false;
}

// Reads the bytes as a document, by looking at every value and by skipping it; then writes what was there and reads it again.
// Returns whether it is a document.
inline bool walk(MimeTypeID mimeType, Bytes bytes) {
    static const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
    static const auto writer = kelo::serializer::Factory::createSerializer(mimeType);
    nlohmann::json first;
    const bool isRead = accepts(*reader, bytes, [&first](auto& from) { return support::readAny(from, first); });
    const bool isSkipped = accepts(*reader, bytes, [](auto& from) { return from.skipValue(); });
    require(isSkipped || !isRead, "what is read is skipped too");
    if (!isRead) return isSkipped;

    util::ByteBufferWriter out;
    require(!writer->start(out) && !support::writeAny(*writer, first) && !writer->finish(), "what is read is written again");
    nlohmann::json second;
    require(accepts(*reader, out.bytes(), [&second](auto& from) { return support::readAny(from, second); }),
            "what is written is read");
    require(first == second, "what is written is what was read");
    return true;
}

// The same for an encoding in which no document is a prefix of another one.
inline bool walkWithPrefixes(MimeTypeID mimeType, Bytes bytes) {
    if (!walk(mimeType, bytes)) return false;
    const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
    const auto skip = [](auto& from) { return from.skipValue(); };
    const std::size_t step = bytes.size() / 32 + 1;
    for (std::size_t size = bytes.size() - 1; size < bytes.size(); size -= step) {
        require(!accepts(*reader, bytes.first(size), skip), "a document that is cut short is refused");
    }
    return true;
}

}  // namespace fuzz
