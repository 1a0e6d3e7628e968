// Lets the thread of one loop run the brief events of another loop that sleeps.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "net/descriptor.h"

namespace kelo::net {

class Loop;

// A loop's part in this, both as lender of its thread and as borrower of another's. Thread: the loop's, which may be a borrowed
// one; functions that end in `Locked`: any, with the mutex of the loop's queue held.
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
    // As lender: runs the events of the loops that were taken hold of.
    void serveBorrowers() noexcept;

    // As borrower, asleep and with only brief events: has the lender's thread run them instead of waking up. False if that one
    // does not lend itself.
    bool holdLocked(Loop* lender) noexcept;
    // As borrower: takes itself back from the calling thread, if that holds it.
    void releaseLocked(const Loop* lender) noexcept;
    // As borrower: the loop is about to sleep until `due`.
    void sleepLocked(TimePoint due) noexcept;
    // As borrower: the loop's own thread has woken up; waits until no other thread runs its events.
    void awaitReturnLocked(std::unique_lock<std::mutex>& lock);

    // Becomes readable when a timer is due that was armed on a borrowed thread, if that is before the sleeping thread wakes by
    // itself.
    int alarm() const noexcept { return alarm_.get(); }

private:
    void runOnThreadOf(Loop& lender) noexcept;
    void setAlarmLocked(TimePoint due) noexcept;

    Loop& own_;
    const Descriptor alarm_;
    std::vector<Loop*> borrowers_;  // only for the loop's own thread; room is reserved in advance
    // Guarded by the mutex of the loop's queue:
    Loop* lender_ = nullptr;  // whose thread has begun to run this loop's events
    bool isAwaited_ = false;
    std::condition_variable isReturned_;
    TimePoint sleepsUntil_ = TimePoint::max();
    TimePoint alarmAt_ = TimePoint::max();
};

}  // namespace kelo::net
