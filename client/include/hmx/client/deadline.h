// A point on the steady clock that a wait must not pass.
#pragma once

#include <algorithm>
#include <chrono>

namespace hmx::client {

// Thread: any (a value).
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds fromNow) : at_{Clock::now() + fromNow} {}

    Clock::time_point at() const noexcept { return at_; }
    // What is left, never negative.
    std::chrono::milliseconds left() const {
        return std::max(std::chrono::milliseconds{0}, std::chrono::ceil<std::chrono::milliseconds>(at_ - Clock::now()));
    }
    bool passed() const { return Clock::now() >= at_; }
    // The earlier of this one and `fromNow`.
    Deadline atMost(std::chrono::milliseconds fromNow) const {
        Deadline other{fromNow};
        other.at_ = std::min(other.at_, at_);
        return other;
    }

private:
    Clock::time_point at_;
};

}  // namespace hmx::client
