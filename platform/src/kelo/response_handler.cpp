#include "kelo/response_handler.h"

#include "tracing/channel.h"

namespace kelo::responsehandlers {
namespace {

const ::tracing::Channel channel{"KELO_RESPONSEHANDLERS"};

}  // namespace

void traceSetTerminated(const char* event) {
    if (channel.isEnabled(0)) ::tracing::logCV(channel, 0, "request terminated by %s", event);
}

void traceAlreadyTerminated(const char* event, bool isError) {
    const int level = isError ? 4 : 0;
    if (channel.isEnabled(level)) ::tracing::logCV(channel, level, "%s for a request that is terminated already", event);
}

}  // namespace kelo::responsehandlers
