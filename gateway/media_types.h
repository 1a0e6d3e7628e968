// Which encoding an answer has and which one a body is in, by the names that HTTP clients use.
#pragma once

#include <span>
#include <string_view>

namespace hmxgateway {

// Thread: any (a constant).
struct MediaType {
    std::string_view name;      // in HTTP
    std::string_view mimeType;  // at the services; "" for an event stream
};

inline constexpr std::string_view eventStreamType{"text/event-stream"};

// What a retrieve can be answered with, the preferred ones first.
[[nodiscard]] std::span<const MediaType> answerTypes() noexcept;

// The one of `offers` that an Accept header weighs most; of equals the first. Null: it takes none of them. An empty header takes
// anything.
[[nodiscard]] const MediaType* choose(std::string_view accept, std::span<const MediaType> offers) noexcept;

// The mime type of a body with this Content-Type; "" for one that no service reads.
[[nodiscard]] std::string_view bodyType(std::string_view contentType) noexcept;

}  // namespace hmxgateway
