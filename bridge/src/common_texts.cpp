#include "bridge/common_texts.h"

namespace hmx {

kelo::Response noClientResponse(const tracing::Channel& channel, const std::string& text) {
    tracing::logC(channel, failureLevel, text.c_str());
    constexpr std::uint16_t serviceUnavailable = 503;
    return kelo::Response::createErrorResponse(serviceUnavailable, "[" + text + ", request not sent]");
}

}  // namespace hmx
