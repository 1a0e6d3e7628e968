// Where a connection is read, and all that reading keeps there between two turns of the loop.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "net/loop.h"

namespace kelo::net {

// Goes from loop to loop as a whole: out of the one on that one's thread, into the other on the other's. Thread: the connection's
// lock is held for all that ends in `Locked`; what changes the loop, and the rest, belongs to the thread of the loop besides.
class ReadingPlace {
public:
    explicit ReadingPlace(int fd) noexcept : fd_{fd} {}

    // The loop that reads, or that is about to once the connection has arrived there; null before the first.
    Loop* loopLocked() const noexcept { return loop_; }
    // The same on the thread that reads, which alone changes it.
    Loop& loop() const noexcept { return *loop_; }
    bool isHereLocked() const noexcept { return loop_ != nullptr && loop_->isCurrentThread(); }
    // Registered, rather than on the way.
    bool isReadLocked() const noexcept { return registration_ != 0; }
    // The number of the present stay, for what is posted during it; 0 on the way.
    std::uint32_t stayLocked() const noexcept { return registration_; }

    // Where the connection is to be read from now on; it goes there when the loop that reads has its turn.
    void wantLocked(Loop& loop) noexcept { wanted_ = &loop; }
    bool isWhereWantedLocked() const noexcept { return wanted_ == loop_; }

    // Registers with the calling thread's loop. False when the system has no room.
    [[nodiscard]] bool enterLocked(Loop& loop, std::shared_ptr<Pollable> pollable, std::uint32_t events);
    // Leaves the loop for the one that is wanted, and has `arrive` called on that one's thread.
    template <class F>
    void leaveLocked(F&& arrive) {
        forgetLocked();
        resumes_ = false;
        loop_ = wanted_;
        // Still under the lock: a loop that is left may end as soon as the lock is free, and this one may be left by then.
        loop_->post(std::forward<F>(arrive));
    }
    // No longer registered anywhere.
    void forgetLocked();
    // Changes what is waited for. Thread: any.
    void watchLocked(std::uint32_t events) noexcept;

    // Received and not yet handled: a part of a frame, or frames that have to wait for their turn. Of the loop's thread alone.
    std::vector<std::uint8_t> carried;

    // Whether those are due for a turn that has been posted, during which nothing more is received.
    bool resumes() const noexcept { return resumes_; }
    // True if the turn has still to be posted.
    bool beginResuming() noexcept { return !std::exchange(resumes_, true); }
    void endResuming() noexcept { resumes_ = false; }

private:
    const int fd_;
    Loop* loop_ = nullptr;
    Loop* wanted_ = nullptr;
    std::uint32_t registration_ = 0;
    std::uint32_t watched_ = 0;
    bool resumes_ = false;
};

}  // namespace kelo::net
