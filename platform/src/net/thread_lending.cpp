#include "net/thread_lending.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <utility>

#include "kelo/std/unhandled_error.h"
#include "net/loop.h"

// A wake-up costs more than most events. So a thread may lend itself, as the runtime's thread does: when it posts a brief event
// to a sleeping loop, it does not wake that loop but takes hold of it, and runs its events itself as soon as it has served its
// own sockets. Meanwhile it is that loop's thread in every respect; if something wakes the loop's own thread, that thread waits
// for the return. The lender writes the output after the return, because writing wakes the peer, and the peer's answer wakes the
// loop. Nothing is lost under load: a loop that is awake, or that has been posted an event that is not brief, is run only by its
// own thread. A timer that the events armed matters to the sleeping thread only if it fires before that thread would wake by
// itself; then an alarm is set, which is a system call but wakes nobody. A loop that is held cannot end, so the lender need not
// check that it still exists.

namespace kelo::net {
namespace {

thread_local bool threadIsLent = false;

constexpr std::size_t mostBorrowers = 16;

}  // namespace

ThreadLending::ThreadLending(Loop& own) : own_{own}, alarm_{::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)} {}

bool ThreadLending::isThreadLent() noexcept {
    return threadIsLent;
}

void ThreadLending::allow() {
    borrowers_.reserve(mostBorrowers);
}

bool ThreadLending::holdLocked(Loop* lender) noexcept {
    if (lender == nullptr) return false;
    auto& borrowers = lender->lending_.borrowers_;
    if (borrowers.size() == borrowers.capacity()) return false;
    borrowers.push_back(&own_);
    lender_ = lender;
    return true;
}

// The calling thread is about to wait for the loop's own thread, which must not wait for the calling thread in turn.
void ThreadLending::releaseLocked(const Loop* lender) noexcept {
    if (lender_ == nullptr || lender_ != lender) return;
    std::erase(lender_->lending_.borrowers_, &own_);
    lender_ = nullptr;
    isReturned_.notify_one();
}

void ThreadLending::serveBorrowers() noexcept {
    if (borrowers_.empty()) return;
    // The list does not grow meanwhile: a thread that runs a borrower's events does not lend itself.
    for (Loop* const borrower : borrowers_) borrower->lending_.runOnThreadOf(own_);
    borrowers_.clear();
    own_.flushAll();
    disposeOfUnhandledError();
}

// Runs what is queued. The output that is collected is left to the lender, whose thread this is.
void ThreadLending::runOnThreadOf(Loop& lender) noexcept {
    bool isBrief = false;
    {
        const std::lock_guard lock{own_.mutex_};
        isBrief = own_.isQueueBrief_ && !own_.stopping_;
        if (isBrief) own_.batch_.swap(own_.queue_);
    }
    if (isBrief) {
        Loop* const outer = std::exchange(Loop::current_, &own_);
        threadIsLent = true;
        own_.runTaken();
        own_.removed_.clear();
        threadIsLent = false;
        Loop::current_ = outer;
        for (auto& flushable : own_.dirty_) lender.flushLater(std::move(flushable));
        own_.dirty_.clear();
    }
    const auto due = own_.earliestDue();
    // Everything below is under the lock: once it is released, the loop may end.
    const std::lock_guard lock{own_.mutex_};
    lender_ = nullptr;
    if (isAwaited_) {
        isReturned_.notify_one();
    } else if (!own_.queue_.empty() || own_.stopping_) {
        own_.wakeUp();
    } else {
        own_.sleeping_ = true;
        if (due < std::min(sleepsUntil_, alarmAt_)) setAlarmLocked(due);
    }
}

void ThreadLending::awaitReturnLocked(std::unique_lock<std::mutex>& lock) {
    isAwaited_ = true;
    isReturned_.wait(lock, [this] { return lender_ == nullptr; });
    isAwaited_ = false;
}

void ThreadLending::sleepLocked(TimePoint due) noexcept {
    sleepsUntil_ = due;
    if (alarmAt_ != TimePoint::max() && alarmAt_ != due) setAlarmLocked(TimePoint::max());
}

// TimePoint::max(): no alarm.
void ThreadLending::setAlarmLocked(TimePoint due) noexcept {
    alarmAt_ = due;
    itimerspec when{};
    if (due != TimePoint::max()) {
        const auto sinceStart = std::max(due.time_since_epoch(), TimePoint::duration{1});
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
        when.it_value = {static_cast<time_t>(seconds.count()), static_cast<long>((sinceStart - seconds).count())};
    }
    ::timerfd_settime(alarm_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

}  // namespace kelo::net
