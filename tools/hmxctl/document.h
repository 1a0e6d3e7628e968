// Documents of every encoding as one generic tree, and back.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "kelo/payload.h"

namespace hmxctl {

// Members keep the order of the wire.
using Json = nlohmann::ordered_json;

// The document that the payload holds; null for an empty payload, text for one that has no structure. UUIDs and URIs are text.
// Errors: Failure (unexpected) with the reader's reason when the bytes are not a document of their type.
[[nodiscard]] Json decode(const kelo::Payload& payload);

// `document` in the encoding of `mimeType`, which must be a structured one. Errors: Failure (usage) for what has no form there,
// an integer outside 64 bits.
[[nodiscard]] kelo::Payload encode(const Json& document, std::string_view mimeType);

// The document as JSON text: the very bytes of the wire when they are JSON, else converted, once.
[[nodiscard]] std::string jsonText(const kelo::Payload& payload);

// One line of JSON.
[[nodiscard]] std::string compact(const Json& document);

// Reads JSON text that a person wrote. `origin` names it in the failure, with line and column: Failure (usage).
[[nodiscard]] Json parseJson(std::string_view text, const std::string& origin);

// "json", "msgpack", "ixobin" or a full name, as a full name. Errors: Failure (usage) for a type without structure.
[[nodiscard]] std::string mimeTypeNamed(std::string_view name);

// The member, or null when `object` has none of that name or is no object.
[[nodiscard]] const Json& member(const Json& object, std::string_view key) noexcept;

// The member's text, "" when it is absent or no string.
[[nodiscard]] std::string text(const Json& object, std::string_view key);

}  // namespace hmxctl
