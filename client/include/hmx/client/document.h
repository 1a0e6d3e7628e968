// Documents of every encoding as one generic tree, and back.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "core/documents.h"
#include "hmx/client/error.h"
#include "kelo/payload.h"

namespace hmx::client {

// Members keep the order of the wire.
using Json = nlohmann::ordered_json;

// The document that the payload holds; null for an empty payload, text for one that has no structure. UUIDs and URIs are text.
// Errors: Error, unreadable, with the reader's reason when the bytes are not a document of their type. Thread: any, as all here.
[[nodiscard]] Json decode(const kelo::Payload& payload);

// `document` in the encoding of `mimeType`, which must be a structured one. Errors: Error, invalid, for what has no form there,
// an integer outside 64 bits.
[[nodiscard]] kelo::Payload encode(const Json& document, std::string_view mimeType);

// The document as JSON text: the very bytes of the wire when they are JSON, else converted, once. Errors: as `decode`.
[[nodiscard]] std::string jsonText(const kelo::Payload& payload);

// One line of JSON.
[[nodiscard]] std::string compact(const Json& document);

// The member, or null when `object` has none of that name or is no object.
[[nodiscard]] const Json& member(const Json& object, std::string_view key) noexcept;

// The member's text, "" when it is absent or no string.
[[nodiscard]] std::string text(const Json& object, std::string_view key);

// A record from the payload. Errors: as `decode`, also for a document of another type than the record's.
void readRecord(const kelo::Payload& payload, kelo::ResultView record);
template <class Record>
[[nodiscard]] Record recordOf(const kelo::Payload& payload) {
    Record record;
    readRecord(payload, kelo::ResultView::of(record));
    return record;
}
template <class Record>
[[nodiscard]] Record recordOf(const Json& document) {
    return recordOf<Record>(encode(document, "application/json"));
}

}  // namespace hmx::client
