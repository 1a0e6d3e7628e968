// A sign of life says that every worker has taken an event from its queue since the last sign. If one has not, it may only be
// busy for a moment, so it is looked at more often from then on, and the sign follows as soon as it has answered. This leaves it
// half of the time that the supervisor grants.
#include "kelo/supervisor/watchdog.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "comm/roll_call.h"
#include "supervisor/environment.h"

namespace kelo::supervisor {
namespace {

using std::chrono::microseconds;

constexpr microseconds shortestPause{1000};

microseconds intervalOf(const Notifier& notifier) {
    const bool isOthers = std::getenv("WATCHDOG_PID") != nullptr && environmentNumber("WATCHDOG_PID") != ::getpid();
    constexpr std::int64_t most = microseconds{std::chrono::hours{24 * 365}}.count();
    return microseconds{!notifier.isWanted() || isOthers ? 0
                                                         : std::clamp<std::int64_t>(environmentNumber("WATCHDOG_USEC"), 0, most)};
}

}  // namespace

Watchdog::Watchdog(const Notifier& notifier)
    : notifier_{notifier}, rollCall_{std::make_unique<comm::RollCall>()}, interval_{intervalOf(notifier)} {}

Watchdog::~Watchdog() = default;

Watchdog::TimePoint Watchdog::turn() {
    if (interval_ == microseconds::zero()) return TimePoint::max();
    const auto now = std::chrono::steady_clock::now();
    if (!rollCall_->isComplete() || !notifier_.tell("WATCHDOG=1")) return now + std::max(interval_ / 20, shortestPause);
    rollCall_->begin();
    return now + interval_ / 2;
}

}  // namespace kelo::supervisor
