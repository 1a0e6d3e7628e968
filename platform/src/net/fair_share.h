// Divides a limited amount among clients, and among users.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kelo/limits.h"

namespace kelo::net {

// Half of the whole is divided equally, so that nobody gets nothing. Of the other half, a client may have at most half of what
// the others leave: one that takes all it can get leaves half for the next, which leaves a quarter, and so on. Users are fewer,
// and often alone: a quarter is divided equally, and of the rest one may have three quarters of what the others leave. Thread:
// any; the result of `admits` is exact if callers ask and take under one lock.
class FairShare {
public:
    enum class Among : std::uint8_t { clients, users };
    // Who asks: a client, or the process itself, which need not leave anything to others.
    enum class For : std::uint8_t { client, ourselves };

    FairShare(std::size_t whole, std::size_t parties, Among among = Among::clients) noexcept
        : equalPart_{whole / (among == Among::clients ? 2 : 4) / parties},
          common_{whole - equalPart_ * parties},
          quarters_{among == Among::clients ? 2U : 3U} {}

    // What everybody may have, whatever the others have.
    std::size_t equalPart() const noexcept { return equalPart_; }
    // Whether somebody who has `own` may have `more` in addition.
    bool admits(std::size_t own, std::size_t more, For who = For::client) const noexcept {
        const std::size_t wanted = commonPartOf(own + more);
        if (wanted == 0) return true;
        const std::size_t ofOthers = taken_.load(std::memory_order_relaxed) - commonPartOf(own);
        const std::size_t left = common_ - std::min(common_, ofOthers);
        return wanted <= (who == For::ourselves ? left : left * quarters_ / 4);
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
    const std::size_t quarters_;         // of what others leave
    std::atomic<std::size_t> taken_{0};  // of the common part
};

// A limit that the users of a process share if they have quotas. Thread: any.
class UserLimit {
public:
    // What a user has of it, over all of its connections.
    using Amount = std::atomic<std::size_t>;

    explicit UserLimit(std::size_t whole) noexcept : shares_{whole, Limits::users, FairShare::Among::users} {}

    // Whether a user may have `more` in addition. Null: users have no quotas.
    bool admits(std::size_t more, const Amount* ofUser) const noexcept {
        return ofUser == nullptr || shares_.admits(ofUser->load(std::memory_order_relaxed), more);
    }
    // A client of the user that had `from` now has `to`.
    void charge(std::size_t from, std::size_t to, Amount& ofUser) noexcept {
        const std::size_t before = ofUser.fetch_add(to - from, std::memory_order_relaxed);
        shares_.change(before, before + to - from);
    }

private:
    FairShare shares_;
};

// A limit that all clients of a process share, and that its users share, too, if they have quotas. Thread: any.
class SharedLimit {
public:
    using Amount = UserLimit::Amount;

    SharedLimit(std::size_t whole, std::size_t clients) noexcept : clients_{whole, clients}, users_{whole} {}

    // Whether a client that has `own` may have `more` in addition. `ofUser`: what its user has; null: users have no quotas.
    bool admits(std::size_t own, std::size_t more, const Amount* ofUser) const noexcept {
        return clients_.admits(own, more) && users_.admits(more, ofUser);
    }
    // A client that had `from` now has `to`.
    void change(std::size_t from, std::size_t to, Amount* ofUser) noexcept {
        clients_.change(from, to);
        if (ofUser != nullptr) charge(from, to, *ofUser);
    }
    // The same for its user alone: what the client has is charged to another one now.
    void charge(std::size_t from, std::size_t to, Amount& ofUser) noexcept { users_.charge(from, to, ofUser); }

private:
    FairShare clients_;
    UserLimit users_;
};

// Limits that all clients of a process share. Outlives their connections, which may outlive the process's runtime. Thread: any.
struct Shares {
    explicit Shares(const Limits& limits) noexcept
        : openRequests{limits.openRequests, limits.connections},
          unreadBytes{limits.unreadBytes, limits.connections},
          incompleteBytes{limits.incompleteBytes, limits.connections},
          streams{limits.userStreams} {}

    SharedLimit openRequests;
    SharedLimit unreadBytes;
    SharedLimit incompleteBytes;
    UserLimit streams;
};

}  // namespace kelo::net
