// The lines that one tracing channel writes during a test.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tracing/channel.h"

namespace support {

// Only one at a time may exist. Thread: any.
class TracedLines {
public:
    explicit TracedLines(std::string channel) : channel_{std::move(channel)} { tracing::setSink(&TracedLines::sink, this); }
    ~TracedLines() { tracing::setSink(nullptr, nullptr); }
    TracedLines(const TracedLines&) = delete;
    TracedLines& operator=(const TracedLines&) = delete;

    // "<level> <text>" of each line since the last call. Restarts the counting of lines, so that many cases in one second are not
    // held back.
    std::vector<std::string> take() {
        tracing::setSink(&TracedLines::sink, this);
        const std::lock_guard lock{mutex_};
        return std::exchange(lines_, {});
    }

private:
    static void sink(const char* channel, int level, const char* text, void* context) {
        auto& self = *static_cast<TracedLines*>(context);
        if (self.channel_ != channel) return;
        const std::lock_guard lock{self.mutex_};
        self.lines_.push_back(std::to_string(level) + " " + text);
    }

    const std::string channel_;
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace support
