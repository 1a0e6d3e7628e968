// How the thread of one loop runs the brief events of another that sleeps.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "net/descriptor.h"

namespace kelo::net {

class Loop;

// A loop's part in it, as the one that lends its thread and as the one that borrows another's. Thread: the loop's, which may be a
// borrowed one; what ends in `Locked`: any, with the mutex of the loop's queue held.
class ThreadLending {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit ThreadLending(Loop& own);
    ThreadLending(const ThreadLending&) = delete;
    ThreadLending& operator=(const ThreadLending&) = delete;

    // Whether the calling thread is running the events of a loop that it has been lent to.
    static bool isThreadLent() noexcept;

    // As lender: from now on, the loop's thread lends itself.
    void allow();
    // Runs the events of those that have been taken hold of meanwhile.
    void serveBorrowers() noexcept;

    // As borrower, asleep and with brief events only: has the lender's thread run them, instead of waking up. False if that does
    // not lend.
    bool holdLocked(Loop* lender) noexcept;
    // Takes itself back from the calling thread, if that holds it.
    void releaseLocked(const Loop* lender) noexcept;
    // The loop is about to sleep until `due`.
    void sleepLocked(TimePoint due) noexcept;
    // The loop's own thread has woken: waits until nobody else runs its events.
    void awaitReturnLocked(std::unique_lock<std::mutex>& lock);

    // Becomes readable when a timer that was armed on a borrowed thread is due before the sleeper would wake by itself.
    int alarm() const noexcept { return alarm_.get(); }

private:
    void runOnThreadOf(Loop& lender) noexcept;
    void setAlarmLocked(TimePoint due) noexcept;

    Loop& own_;
    const Descriptor alarm_;
    std::vector<Loop*> borrowers_;  // of the loop's own thread; room is there from the start
    // Guarded by the mutex of the loop's queue:
    Loop* lender_ = nullptr;  // of which the thread has set out to run this loop's events
    bool isAwaited_ = false;
    std::condition_variable isReturned_;
    TimePoint sleepsUntil_ = TimePoint::max();
    TimePoint alarmAt_ = TimePoint::max();
};

}  // namespace kelo::net
