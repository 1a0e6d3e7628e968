// What the bridges say in the same way: ids in log lines, and the answer when the upstream service is away.
#pragma once

#include "kelo/response.h"
#include "kelo/std/uuid.h"
#include "tracing/channel.h"

namespace hmx {

// Levels of the bridges' log lines.
inline constexpr int progressLevel = 1;
inline constexpr int unknownIdLevel = 3;
inline constexpr int errorLevel = 3;  // what a client did wrong, and upstream errors that are passed on
inline constexpr int failureLevel = 4;

// An id as log lines have it, without memory from the heap. Thread: any (a value).
class IdText {
public:
    explicit IdText(const std::UUID& id) noexcept { id.toChars(text_); }
    const char* c_str() const noexcept { return text_; }

private:
    char text_[std::UUID::textLength + 1] = {};
};

// Logs `text` as a failure; the response, with status 503, says the same in brackets. Thread: any.
[[nodiscard]] kelo::Response noClientResponse(const tracing::Channel& channel, const char* text);

}  // namespace hmx
