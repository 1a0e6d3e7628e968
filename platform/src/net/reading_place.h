// Where a connection is read, and everything that reading keeps there between two turns of the loop.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "net/loop.h"

namespace kelo::net {

// Moves from loop to loop as a whole: it leaves the old one on that loop's thread and enters the new one on the new loop's.
// Thread: functions that end in `Locked` need the connection's lock; those that change the loop, and all others, must also be
// called on the loop's thread.
class ReadingPlace {
public:
    explicit ReadingPlace(int fd) noexcept : fd_{fd} {}

    // The loop that reads, or that will read once the connection has arrived; null before the first.
    Loop* loopLocked() const noexcept { return loop_; }
    // The same, for the thread that reads; only that thread changes it.
    Loop& loop() const noexcept { return *loop_; }
    bool isHereLocked() const noexcept { return loop_ != nullptr && loop_->isCurrentThread(); }
    // Registered with a loop, not moving.
    bool isReadLocked() const noexcept { return registration_ != 0; }
    // The number of the current stay, for what is posted during it; 0 while moving.
    std::uint32_t stayLocked() const noexcept { return registration_; }

    // Sets the loop where the connection is to be read from now on. It moves when the loop that reads has its turn.
    void wantLocked(Loop& loop) noexcept { wanted_ = &loop; }
    bool isWhereWantedLocked() const noexcept { return wanted_ == loop_; }

    // Registers with the calling thread's loop. False if the system has no room.
    [[nodiscard]] bool enterLocked(Loop& loop, std::shared_ptr<Pollable> pollable, std::uint32_t events);
    // Leaves the loop for the wanted one, and has `arrive` called on that one's thread.
    template <class F>
    void leaveLocked(F&& arrive) {
        forgetLocked();
        resumes_ = false;
        loop_ = wanted_;
        // Still under the lock: once it is released, the wanted loop may change, and this one may be destroyed.
        loop_->post(std::forward<F>(arrive));
    }
    // Ends the registration.
    void forgetLocked();
    // Changes the events that are waited for. Thread: any.
    void watchLocked(std::uint32_t events) noexcept;

    // Received but not handled yet: a part of a frame, or frames that wait for their turn. Only for the loop's thread.
    std::vector<std::uint8_t> carried;

    // Whether a turn has been posted to handle these; until then, nothing more is received.
    bool resumes() const noexcept { return resumes_; }
    // True if the turn must still be posted.
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
