// The mime types that the framework knows.
#pragma once

#include <cstdint>
#include <string_view>

namespace kelo::mimetypes {

enum class MimeTypeID : std::uint8_t { unknown, json, plainText, octetStream, msgpack, ixobin };

inline constexpr std::string_view applicationJson = "application/json";
inline constexpr std::string_view plainText = "plain/text";
inline constexpr std::string_view applicationOctetStream = "application/octet-stream";
inline constexpr std::string_view applicationMsgpack = "application/vnd.msgpack";
inline constexpr std::string_view applicationIxobin = "application/vnd.ixobin";

// The id of a mime type. Names are compared without case; parameters (";charset=…") and surrounding blanks are ignored. `unknown`
// for any other name. Thread: any.
[[nodiscard]] MimeTypeID typename2id(std::string_view name) noexcept;
// The name of an id; "" for unknown.
[[nodiscard]] std::string_view id2typename(MimeTypeID id) noexcept;
// Whether there is a structured serialiser for it: JSON, msgpack and the binary form.
[[nodiscard]] bool isStructured(MimeTypeID id) noexcept;

}  // namespace kelo::mimetypes
