// Tracing channels: named streams of lines on standard error.
#pragma once

#include <atomic>

namespace tracing {

// A resource with static storage, usually at namespace scope: `tracing::Channel channel{"BENCH_Startup"};`. Its threshold comes
// from KELO_TRACE ("*=2,HMX_TOLU_BRIDGE_POPUPS=1": later entries win, "*" is every channel), 2 when that names none.
// Levels: 1 progress, 2 start-up progress, 3 unknown ids, 4 failures.
// Thread: any.
class Channel {
public:
    explicit Channel(const char* name) noexcept;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // A line of level L is emitted when the threshold is below L + 1.
    bool isEnabled(int level) const noexcept { return threshold_.load(std::memory_order_relaxed) < level + 1; }
    void setThreshold(int threshold) noexcept { threshold_.store(threshold, std::memory_order_relaxed); }
    const char* name() const noexcept { return name_; }

private:
    const char* name_;
    std::atomic<int> threshold_;
};

// One line on standard error: time (local, milliseconds), application, channel, level, text, in one write. Nothing is formatted
// for a line that is not emitted; control characters in the text are escaped, so that one message is one line. A standard error
// that cannot take the line at once loses it, and the next line that gets through says how many were lost.
//
// Lines of level 3 and 4 are what others can cause, as often as they like: of each, which is to say of each `text` or `format`,
// only `linesPerSecond` get through, and the next one says how many were held back. So both must be literals, or as lasting.
inline constexpr unsigned linesPerSecond = 20;
inline void logC(const Channel& channel, int level, const char* text) noexcept;
[[gnu::format(printf, 3, 4)]] void logCV(const Channel& channel, int level, const char* format, ...) noexcept;

// A line that is emitted in any case; for `logC`.
void emitLine(const Channel& channel, int level, const char* text) noexcept;

inline void logC(const Channel& channel, int level, const char* text) noexcept {
    if (channel.isEnabled(level)) emitLine(channel, level, text);
}

// Where emitted lines go; for tests. Null restores standard error. Either begins counting lines anew. Thread: any; the sink is
// called on the logging thread.
using Sink = void (*)(const char* channel, int level, const char* text, void* context);
void setSink(Sink sink, void* context) noexcept;

}  // namespace tracing
