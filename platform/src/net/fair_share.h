// Divides a limited amount among clients.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kelo/limits.h"

namespace kelo::net {

// Half of the whole is divided equally, so that nobody gets nothing. Of the other half, a client may have at most half of what
// the others leave: one that takes all it can get leaves half for the next, which leaves a quarter, and so on. Thread: any; the
// result of `admits` is exact if callers ask and take under one lock.
class FairShare {
public:
    // Who asks: a client, or the process itself, which need not leave anything to others.
    enum class For : std::uint8_t { client, ourselves };

    FairShare(std::size_t whole, std::size_t clients) noexcept
        : equalPart_{whole / 2 / clients}, common_{whole - equalPart_ * clients} {}

    // What every client may have, whatever the others have.
    std::size_t equalPart() const noexcept { return equalPart_; }
    // Whether somebody who has `own` may have `more` in addition.
    bool admits(std::size_t own, std::size_t more, For who = For::client) const noexcept {
        const std::size_t wanted = commonPartOf(own + more);
        if (wanted == 0) return true;
        const std::size_t ofOthers = taken_.load(std::memory_order_relaxed) - commonPartOf(own);
        const std::size_t left = common_ - std::min(common_, ofOthers);
        return wanted <= (who == For::ourselves ? left : left / 2);
    }
    // Somebody who had `from` now has `to`.
    void change(std::size_t from, std::size_t to) noexcept {
        if (std::max(from, to) <= equalPart_) return;
        taken_.fetch_add(commonPartOf(to) - commonPartOf(from), std::memory_order_relaxed);
    }

private:
    std::size_t commonPartOf(std::size_t own) const noexcept { return own - std::min(own, equalPart_); }

    const std::size_t equalPart_;
    const std::size_t common_;
    std::atomic<std::size_t> taken_{0};  // of the second half
};

// Limits that all clients of a process share. Outlives their connections, which may outlive the process's runtime. Thread: any.
struct Shares {
    explicit Shares(const Limits& limits) noexcept
        : openRequests{limits.openRequests, limits.connections},
          unreadBytes{limits.unreadBytes, limits.connections},
          incompleteBytes{limits.incompleteBytes, limits.connections} {}

    FairShare openRequests;
    FairShare unreadBytes;
    FairShare incompleteBytes;
};

}  // namespace kelo::net
