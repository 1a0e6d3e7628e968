// The protocol of docs/wire.md, written by hand over blocking sockets. It costs little, and always the same, whatever is between
// the peers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "support/wire.h"

namespace road {

using namespace testing_support;

// A whole frame in somebody else's memory.
struct Frame {
    const std::uint8_t* bytes;
    std::size_t size;

    [[nodiscard]] FrameType type() const { return static_cast<FrameType>(bytes[4]); }
    [[nodiscard]] std::uint8_t flags() const { return bytes[5]; }
    [[nodiscard]] std::uint64_t id() const { return numberAt(bytes + 8, 8); }
    [[nodiscard]] std::string_view body() const { return {reinterpret_cast<const char*>(bytes) + headerSize, size - headerSize}; }
};
inline void setId(Bytes& frame, std::uint64_t id) {
    putNumber(frame.data() + 8, id, 8);
}

std::string socketName(std::string_view service);
int listenAt(const std::string& directory, std::string_view service);
// Waits up to ten seconds for the service.
int connectTo(const std::string& directory, std::string_view service);
bool sendAll(int fd, const Bytes& bytes);

// How a peer sends several frames: all in one call, like a peer that has gathered them, or each in a call of its own, like
// several independent peers.
enum class Sends : std::uint8_t { gathered, single };
Sends sendsOf(std::string_view name);

// Frames to be sent. Thread: one at a time.
class Outbox {
public:
    explicit Outbox(Sends sends) : sends_{sends} {}

    void add(const Bytes& frame);
    // False if the peer is gone.
    bool flush(int fd);

private:
    const Sends sends_;
    Bytes bytes_;
};

// Collects the bytes of a socket and returns whole frames. Thread: one at a time.
class FrameReader {
public:
    // Receives once; false at the end of the stream.
    bool receive(int fd);

    template <class Handle>
    void frames(Handle handle) {
        std::size_t used = 0;
        while (const std::size_t size = wholeFrame(buffer_.data() + used, kept_ - used)) {
            handle(Frame{&buffer_[used], size});
            used += size;
        }
        std::memmove(buffer_.data(), buffer_.data() + used, kept_ - used);
        kept_ -= used;
    }

private:
    static constexpr std::size_t chunk = std::size_t{64} * 1024;

    Bytes buffer_;
    std::size_t kept_ = 0;
};

// Connects as a client and exchanges hellos.
int greet(const std::string& directory, std::string_view service, FrameReader& reader);

}  // namespace road
