// The recordings of one directory: their list, and their bytes.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "event_loop.h"
#include "http_server.h"

namespace hmxgateway {

inline constexpr std::string_view recordingType{"application/jsonl"};

// A recording that is open, with the bytes that it had then: one that is still being written grows meanwhile.
// Thread: the gateway's (a resource).
struct RecordingFile {
    Descriptor file;
    std::uint64_t size = 0;
    std::string tag;  // as an ETag
};

// Thread: the gateway's (a resource).
class Recordings {
public:
    // None are served.
    Recordings() = default;
    // Errors: std::runtime_error, if the directory cannot be opened.
    explicit Recordings(const std::string& directory);

    bool areServed() const noexcept { return static_cast<bool>(directory_); }
    // As JSON, the newest first: {"recordings":[{"name":…,"size":…,"modified":…}],"more":false}.
    [[nodiscard]] std::string list() const;
    // Nothing if there is no such recording.
    [[nodiscard]] std::optional<RecordingFile> open(const std::string& wanted) const;

    // `length` bytes of the file from `offset` on, for a client; null while too many are being sent. It outlives the stream.
    [[nodiscard]] std::unique_ptr<IStream> send(RecordingFile recording, std::uint64_t offset, std::uint64_t length);

private:
    Descriptor directory_;
    std::size_t sending_ = 0;
};

// Which bytes a Range header asks for: all, if it asks for several ranges or cannot be understood. Nothing if there are none at
// that place. Thread: any.
struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};
[[nodiscard]] std::optional<ByteRange> rangeIn(std::string_view header, std::uint64_t size);

}  // namespace hmxgateway
