// The frames that travel between two processes: 16 bytes of header, a map of header fields, the payload as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/request.h"
#include "kelo/response.h"
#include "util/byte_buffer.h"

namespace kelo::wire {

enum class FrameType : std::uint8_t { hello = 1, request = 2, next = 3, error = 4, completed = 5, cancel = 6 };

// Of a request: one value is enough.
inline constexpr std::uint8_t flagOneShot = 0x01;
// Of a next: the request has ended with it.
inline constexpr std::uint8_t flagEnd = 0x02;

inline constexpr std::size_t headerSize = 16;
inline constexpr std::uint32_t protocolVersion = 1;

// The 16 bytes, decoded. Thread: any (a value).
struct FrameHeader {
    std::uint32_t bodyLength = 0;
    FrameType type = FrameType::hello;
    std::uint8_t flags = 0;
    std::uint64_t requestId = 0;
};

// Reads the header at the start of `bytes`, of which there are at least `headerSize`. Null on success, else what is wrong.
[[nodiscard]] const char* readHeader(std::span<const std::uint8_t> bytes, FrameHeader& header) noexcept;

// What both sides say first. Thread: any (a value).
struct Hello {
    std::uint32_t version = 0;
    std::string application;
    std::string servicePath;  // the consumer's
    std::string mimeTypes;    // the provider's, in order of preference, divided by commas
};

// Each appends one whole frame to `out`; nothing, when it throws because memory is short.
void appendHello(util::ByteBufferWriter& out, const Hello& hello);
void appendRequest(util::ByteBufferWriter& out, std::uint64_t id, const Request& request, bool oneShot);
void appendResponse(util::ByteBufferWriter& out, FrameType type, std::uint8_t flags, std::uint64_t id, const Response& response);
void appendBare(util::ByteBufferWriter& out, FrameType type, std::uint64_t id);

// Each reads the body of a frame into a value that may be reused; payloads borrow from `body`. Null on success, else what is
// wrong. Unknown header keys of requests and responses go to their header map; of a hello they are ignored.
[[nodiscard]] const char* readHello(std::span<const std::uint8_t> body, Hello& hello);
// `defaultClientId`: the client's id where the frame gives none.
[[nodiscard]] const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request);
[[nodiscard]] const char* readResponse(std::span<const std::uint8_t> body, Response& response);

// The header fields that a value was read from last. Nearly all answers have those of the one before, and so have the requests of
// a client that asks for the same again: the value has them already then, and only its payload is new. That saves a request one
// instruction in twenty. Thread: one at a time.
class LastFields {
public:
    std::size_t size() const noexcept { return bytes_.size(); }
    bool areFirstIn(std::span<const std::uint8_t> body) const noexcept;
    void keep(std::span<const std::uint8_t> fields);
    void forget() noexcept { bytes_.clear(); }

private:
    static constexpr std::size_t most = 512;  // longer ones are not kept

    std::vector<std::uint8_t> bytes_;
};

// The same for a value that is read into with one `last` and one default client id, and written to by nobody else.
[[nodiscard]] const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request,
                                      LastFields& last);
[[nodiscard]] const char* readResponse(std::span<const std::uint8_t> body, Response& response, LastFields& last);
// Nothing at all, or an empty map.
[[nodiscard]] const char* readBare(std::span<const std::uint8_t> body) noexcept;

}  // namespace kelo::wire
