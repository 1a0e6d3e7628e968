// Lines go to libdlt, which writes each to the daemon's pipe on the calling thread and never waits: what the pipe cannot take,
// and everything while there is no daemon, is kept in its ring of bounded size; what the ring cannot take is counted, and the
// daemon is told the number. libdlt has a thread of its own, which looks for messages of the daemon ten times a second and for a
// lost daemon twice.
//
// One DLT context stands for each channel. The channel's threshold and the context's level mean the same and follow each other. A
// level that the daemon sets becomes the threshold. A threshold that the program sets becomes the context's level at once, so
// that libdlt lets its lines pass; the daemon learns it because the context is registered once more, which libdlt has no other
// way to tell it. Each registration takes a place in libdlt's table for good, so there is a limit: after it, the daemon is not
// told any more, and shows what it knew last. A channel with the usual threshold is registered without a level. Then the daemon's
// own decides: its default, or what was stored for the context.
//
// This module uses nothing of the C++ library that would have to be linked, so it does not bring another one into the process.

#include <dlt/dlt_common.h>
#include <dlt/dlt_user.h>
#include <syslog.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tracing/sink.h"

namespace {

constexpr int usualThreshold = 2;
constexpr std::uint32_t commandService = 0x1000;  // the first number that DLT leaves to applications
constexpr std::uint32_t exitMilliseconds = 300;

const KeloTraceHost* program = nullptr;
std::atomic<bool> isClosed{false};

// --- Levels: ours rise with importance, those of DLT fall ---

constexpr int mostImportant = 5;

DltLogLevelType dltLevel(int level) noexcept {
    constexpr std::array levels{DLT_LOG_VERBOSE, DLT_LOG_DEBUG, DLT_LOG_INFO, DLT_LOG_WARN, DLT_LOG_ERROR, DLT_LOG_FATAL};
    if (level < 0) return levels.front();
    return levels[static_cast<std::size_t>(level > mostImportant ? mostImportant : level)];
}

// The level of a context that passes what the threshold passes.
DltLogLevelType contextLevel(int threshold) noexcept {
    return threshold > mostImportant ? DLT_LOG_OFF : dltLevel(threshold);
}

int thresholdOf(std::uint8_t contextLevel) noexcept {
    return DLT_LOG_VERBOSE - static_cast<int>(contextLevel);
}

// --- Channels ---

// Thread: any.
struct Channel {
    const char* name;
    const char* id;
    std::atomic<DltContext*> current;  // the registration in use; null if there is no channel here yet
};
std::array<Channel, 64> channels;
std::atomic<std::size_t> channelCount{0};

std::array<DltContext, 400> registrations;  // libdlt allocates its table in steps of 500
std::atomic<std::size_t> registrationCount{0};

// The next free place; null if there is none.
template <class Place, std::size_t size>
Place* take(std::array<Place, size>& places, std::atomic<std::size_t>& count) noexcept {
    std::size_t number = count;
    while (number < size && !count.compare_exchange_weak(number, number + 1)) {
    }
    return number < size ? &places[number] : nullptr;
}

// What a context lets pass. libdlt changes it, too.
void setLevel(const DltContext& context, DltLogLevelType level) noexcept {
    std::atomic_ref{*context.log_level_ptr}.store(static_cast<std::int8_t>(level));
}

// Thread: libdlt's.
void levelChanged(char* id, std::uint8_t level, std::uint8_t /*traceStatus*/) {
    if (level > DLT_LOG_VERBOSE) return;
    for (Channel& channel : channels) {
        const DltContext* const context = channel.current;
        if (context == nullptr || std::string_view{id, DLT_ID_SIZE} != channel.id) continue;
        setLevel(*context, static_cast<DltLogLevelType>(level));
        (void)program->setThreshold(channel.name, thresholdOf(level));
    }
}

// Thread: libdlt's.
int commanded(std::uint32_t /*service*/, void* data, std::uint32_t length) {
    std::string_view text{static_cast<const char*>(data), length};
    while (!text.empty() && (text.back() == '\0' || text.back() == '\n')) text.remove_suffix(1);
    if (text == "dump status") program->dumpStatus();
    return 0;
}

// False if there is no room. Without a daemon, libdlt reports an error, and registers the context when there is one.
bool registerContext(Channel& channel, int threshold) {
    DltContext* const context = isClosed ? nullptr : take(registrations, registrationCount);
    if (context == nullptr) return false;
    if (threshold == usualThreshold && channel.current.load() == nullptr) {
        (void)dlt_register_context_llccb(context, channel.id, channel.name, &levelChanged);
    } else {
        (void)dlt_register_context_ll_ts(context, channel.id, channel.name, contextLevel(threshold), DLT_TRACE_STATUS_OFF);
        (void)dlt_register_log_level_changed_callback(context, &levelChanged);
    }
    if (context->log_level_ptr == nullptr) return false;
    (void)dlt_register_injection_callback(context, commandService, &commanded);
    channel.current = context;
    return true;
}

// --- The interface ---

const char* open(const KeloTraceHost* host) {
    program = host;
    // At 10,000 lines a second, the daemon may fall behind by three seconds. The operator's own choice comes first.
    (void)::setenv("DLT_USER_BUFFER_MAX", "4000000", 0);
    (void)::setenv("DLT_USER_BUFFER_STEP", "500000", 0);
    errno = 0;                   // libdlt takes an earlier error for one in these numbers
    dlt_log_set_level(LOG_ERR);  // its warnings, one for each burst that is lost, could block on standard error
    if (dlt_init() < DLT_RETURN_OK) return "libdlt does not start; may it write to its pipe directory?";
    (void)dlt_set_resend_timeout_atexit(exitMilliseconds);
    (void)dlt_register_app(host->applicationId, host->application);
    return nullptr;
}

void* addChannel(const char* name, const char* id, int threshold) {
    Channel* const channel = take(channels, channelCount);
    if (channel == nullptr) return nullptr;
    channel->name = name;
    channel->id = id;
    return registerContext(*channel, threshold) ? channel : nullptr;
}

void thresholdChanged(void* at, int threshold) {
    Channel& channel = *static_cast<Channel*>(at);
    const DltContext& context = *channel.current.load();
    if (isClosed || *context.log_level_ptr == contextLevel(threshold)) return;
    setLevel(context, contextLevel(threshold));
    (void)registerContext(channel, threshold);
}

void writeLine(void* at, int level, const char* text) {
    DltContextData line;
    if (dlt_user_log_write_start(static_cast<Channel*>(at)->current, &line, dltLevel(level)) != DLT_RETURN_TRUE) return;
    (void)dlt_user_log_write_utf8_string(&line, text);
    (void)dlt_user_log_write_finish(&line);
}

void close() {
    isClosed = true;
    (void)dlt_user_atexit_blow_out_user_buffer();
    (void)dlt_unregister_app();
    (void)dlt_free();
}

constexpr KeloTraceSink sink{keloTraceSinkVersion, &open, &addChannel, &thresholdChanged, &writeLine, &close};

}  // namespace

extern "C" [[gnu::visibility("default")]] const KeloTraceSink* keloTraceSink() {
    return &sink;
}
