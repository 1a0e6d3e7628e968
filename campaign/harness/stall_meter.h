// Tells whether the host let this process run during a measurement: a figure that includes the host's own pauses proves
// nothing.
#pragma once

#include <atomic>
#include <thread>

#include "harness/scope.h"

namespace campaign {

// A thread that wakes up every millisecond and measures how late it is. Thread: any.
class StallMeter {
public:
    StallMeter() : thread_{[this] { run(); }} {}
    StallMeter(const StallMeter&) = delete;
    StallMeter& operator=(const StallMeter&) = delete;
    ~StallMeter() {
        isOver_ = true;
        thread_.join();
    }

    // The longest delay since the last call, in milliseconds.
    double takeLongest() { return longest_.exchange(0); }

private:
    void run() {
        for (auto due = Clock::now() + milliseconds{1}; !isOver_; due = Clock::now() + milliseconds{1}) {
            std::this_thread::sleep_until(due);
            const double late = millisecondsSince(due);
            if (late > longest_) longest_ = late;
        }
    }

    std::atomic<double> longest_{0};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

}  // namespace campaign
