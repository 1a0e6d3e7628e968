// Tracing channels: named streams of lines on standard error.
#pragma once

#include <atomic>

namespace tracing {

// A resource with static storage, usually at namespace scope: `tracing::Channel channel{"BENCH_Startup"};`. Its threshold comes
// from KELO_TRACE ("*=2,HMX_TOLU_BRIDGE_POPUPS=1": "*" means every channel, later entries override earlier ones); without a
// matching entry it is 2. It may be changed at any time, see levels.h. Levels: 1 progress, 2 start-up progress, 3 unknown ids,
// 4 failures. Thread: any.
class Channel {
public:
    // `name` must live as long.
    explicit Channel(const char* name) noexcept;
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // A line of level L is written if the threshold is below L + 1.
    bool isEnabled(int level) const noexcept { return threshold_.load(std::memory_order_relaxed) < level + 1; }
    int threshold() const noexcept { return threshold_.load(std::memory_order_relaxed); }
    // Of a constant channel, too: what is written is the operator's choice, not that of the code that declares the channel.
    void setThreshold(int threshold) const noexcept { threshold_.store(threshold, std::memory_order_relaxed); }
    const char* name() const noexcept { return name_; }

private:
    friend class ChannelList;

    const char* const name_;
    mutable std::atomic<int> threshold_;
    mutable const Channel* next_ = nullptr;  // in the list of all channels
};

// Writes one line to standard error: time (local, milliseconds), application, channel, level, text. Nothing is formatted for a
// line that is not written. Control characters in the text are escaped, so one message is one line. If standard error cannot take
// the line at once, it is lost, and the next line that gets through gives the number of lost lines.
//
// Clients can cause lines of level 3 and 4 as often as they like. So at most `linesPerSecond` of a kind are written in a second,
// and the next one gives the number held back. A kind is the address of `text` or `format`, which must therefore be literals or
// live as long.
inline constexpr unsigned linesPerSecond = 20;
inline void logC(const Channel& channel, int level, const char* text) noexcept;
[[gnu::format(printf, 3, 4)]] void logCV(const Channel& channel, int level, const char* format, ...) noexcept;

// Writes a line without checking the threshold; for `logC`.
void emitLine(const Channel& channel, int level, const char* text) noexcept;

inline void logC(const Channel& channel, int level, const char* text) noexcept {
    if (channel.isEnabled(level)) emitLine(channel, level, text);
}

// Redirects lines; for tests. Null restores standard error. Both restart the counting of lines of a kind. Thread: any; the sink
// is called on the logging thread.
using Sink = void (*)(const char* channel, int level, const char* text, void* context);
void setSink(Sink function, void* context) noexcept;

}  // namespace tracing
