// What the bridges say in the same way: ids in log lines, and the answer when the upstream service is away.
#pragma once

#include <string>

#include "kelo/kelo_api.h"
#include "kelo/response.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "tracing/channel.h"

namespace hmx {

// Levels of the bridges' log lines.
inline constexpr int progressLevel = 1;
inline constexpr int startLevel = 2;
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

// Ends a request for what has no name, since the path upstream would be that of something else. What it returns is no request.
// Thread: any.
template <class T>
void* refuseNameless(const char* reason, kelo::IResponseHandler<T>& handler) {
    handler.onError(kelo::Response::createErrorResponse(404, reason));
    return kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE;
}

// Logs `text` as a failure; the response, with status 503, says the same in brackets, and that nothing was sent. Thread: any.
[[nodiscard]] kelo::Response noClientResponse(const tracing::Channel& channel, const std::string& text);

}  // namespace hmx
