// Frames as in docs/wire.md, written and read without the platform's code.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "support/raw_peer.h"

namespace campaign {

using namespace testing_support;

// A frame whose body has been parsed. It has views of the buffer that it was found in. Thread: any (a value).
struct Frame {
    std::uint8_t type = 0;
    std::uint8_t flags = 0;
    std::uint64_t id = 0;
    std::map<std::string_view, std::string_view> texts;  // of the header map
    std::map<std::string_view, std::uint64_t> numbers;   // likewise
    std::string_view payload;

    int status() const;
    std::string_view text(std::string_view key) const;
    // The last value of a one-shot request, an error or a completion.
    bool isEnd() const noexcept { return type == error || type == completed || (type == next && (flags & endFlag) != 0); }
};

// Cuts the bytes of one connection into frames. Throws Failure for anything else: our peers must not send it.
class FrameReader {
public:
    // Reads what the socket has, without waiting; false at the end of the connection.
    bool receive(int fd);
    // The next whole frame; its views are valid until the next call of either function.
    std::optional<Frame> take();

private:
    Bytes bytes_;
    std::size_t at_ = 0;
};

}  // namespace campaign
