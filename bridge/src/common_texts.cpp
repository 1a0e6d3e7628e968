#include "bridge/common_texts.h"

#include <string>

namespace hmx {

kelo::Response noClientResponse(const tracing::Channel& channel, const char* text) {
    tracing::logC(channel, failureLevel, text);
    constexpr std::uint16_t serviceUnavailable = 503;
    return kelo::Response::createErrorResponse(serviceUnavailable, "[" + std::string{text} + "]");
}

}  // namespace hmx
