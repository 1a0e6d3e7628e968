// Signs of life for the supervisor, which ends a process that sends none.
#pragma once

#include <chrono>
#include <memory>

#include "kelo/supervisor/notifier.h"

namespace comm {
class RollCall;
}

namespace kelo::supervisor {

// Sends a sign of life each half of $WATCHDOG_USEC microseconds, but only if every worker of the process has answered since the
// last one. So one that is stuck lets the time run out. Without $WATCHDOG_USEC, or if $WATCHDOG_PID names another process, there
// is nothing to do. A resource. Thread: one at a time, whose own life is shown, too.
class Watchdog {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // The notifier must outlive it.
    explicit Watchdog(const Notifier& notifier);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // Does what is due, and returns when to call again; TimePoint::max(): never.
    TimePoint turn();

private:
    const Notifier& notifier_;
    const std::unique_ptr<comm::RollCall> rollCall_;
    const std::chrono::microseconds interval_;  // zero: nothing to do
};

}  // namespace kelo::supervisor
