// Texts that all bridges use: ids in log lines, and the answer if the upstream service is not available.
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
inline constexpr int errorLevel = 3;  // a client's error, or an upstream error that is passed on
inline constexpr int failureLevel = 4;

// An id as text for log lines, without allocating. Thread: any (a value).
class IdText {
public:
    explicit IdText(const std::UUID& id) noexcept { id.toChars(text_); }
    const char* c_str() const noexcept { return text_; }

private:
    char text_[std::UUID::textLength + 1] = {};
};

// Ends a request for an element without a name, because the upstream path would be that of something else. Returns
// UNDEFINED_REQUEST_HANDLE. Thread: any.
template <class T>
void* refuseNameless(const char* reason, kelo::IResponseHandler<T>& handler) {
    handler.onError(kelo::Response::createErrorResponse(404, reason));
    return kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE;
}

// Logs `text` as a failure and returns a response with status 503 that says the same in brackets, and that nothing was sent.
// Thread: any.
[[nodiscard]] kelo::Response noClientResponse(const tracing::Channel& channel, const std::string& text);

}  // namespace hmx
