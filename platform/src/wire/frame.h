// The frames between two processes: a header of 16 bytes, a map of header fields, and the payload as it is.
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
// Of a next: it ends the request.
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

// Reads the header at the start of `bytes`, which has at least `headerSize` bytes. Null on success, else what is wrong.
[[nodiscard]] const char* readHeader(std::span<const std::uint8_t> bytes, FrameHeader& header) noexcept;

// The first frame of both sides. Thread: any (a value).
struct Hello {
    std::uint32_t version = 0;
    std::string application;
    std::string servicePath;  // sent by the consumer
    std::string mimeTypes;    // sent by the provider: in order of preference, separated by commas
};

// Each appends one whole frame to `out`, or nothing if it throws because memory is short.
void appendHello(util::ByteBufferWriter& out, const Hello& hello);
void appendRequest(util::ByteBufferWriter& out, std::uint64_t id, const Request& request, bool oneShot);
void appendResponse(util::ByteBufferWriter& out, FrameType type, std::uint8_t flags, std::uint64_t id, const Response& response);
void appendBare(util::ByteBufferWriter& out, FrameType type, std::uint64_t id);

// Each reads the body of a frame into a value, which may be reused; payloads borrow from `body`. Null on success, else what is
// wrong. Unknown header keys of requests and responses go to their header map; those of a hello are ignored.
[[nodiscard]] const char* readHello(std::span<const std::uint8_t> body, Hello& hello);
// `defaultClientId`: the client id if the frame has none.
[[nodiscard]] const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request);
[[nodiscard]] const char* readResponse(std::span<const std::uint8_t> body, Response& response);

// The header fields that a value was last read from. Nearly all answers have the same fields as the one before, and so have the
// requests of a client that repeats one. The value then has these fields already, and only its payload is new. That saves one
// instruction in twenty of a request. Thread: one at a time.
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

// The same for a value that is always read with the same `last` and the same default client id, and that nobody else writes to.
[[nodiscard]] const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request,
                                      LastFields& last);
[[nodiscard]] const char* readResponse(std::span<const std::uint8_t> body, Response& response, LastFields& last);
// For frames without fields: the body must be empty, or an empty map.
[[nodiscard]] const char* readBare(std::span<const std::uint8_t> body) noexcept;

}  // namespace kelo::wire
