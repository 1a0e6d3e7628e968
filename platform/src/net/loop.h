// The event loop of a worker: a queue of events, readable sockets, timers, and one gathered send per drain.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"
#include "net/descriptor.h"
#include "net/thread_lending.h"

namespace kelo::net {

using Clock = std::chrono::steady_clock;

// Something with a file descriptor. Kept alive by the loop while it is registered.
class Pollable {
public:
    virtual ~Pollable() = default;
    // Thread: the loop's. `events`: what epoll reported.
    virtual void onReady(std::uint32_t events) = 0;
};

// Something that collects output and writes it when the current drain is over.
class Flushable {
public:
    virtual ~Flushable() = default;
    // Thread: that of the loop that has drained.
    virtual void flush() = 0;
};

class Loop;

// Fires once, at or after its time. It is a time stamp that the loop checks before it sleeps, so arming and disarming cost one
// store. Thread: the loop's, also for construction and destruction.
class Timer {
public:
    Timer(Loop& loop, std::function<void()> onDue);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void arm(Clock::time_point due) noexcept;
    void disarm() noexcept { arm(Clock::time_point::max()); }
    bool isArmed() const noexcept { return due_ != Clock::time_point::max(); }
    Clock::time_point due() const noexcept { return due_; }

private:
    friend class Loop;
    Loop& loop_;
    std::function<void()> onDue_;
    Clock::time_point due_ = Clock::time_point::max();
};

// A resource. Thread: any for `enque`, `pending`, `stop` and `isCurrentThread`; the one that runs the loop for everything else.
class Loop {
public:
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // brief: the event is short and does not block, so it may run on a borrowed thread.
    enum class Kind : std::uint8_t { any, brief };

    // Queues an event. Wakes the loop only if it sleeps. If the event is brief and the calling thread lends itself, the loop is
    // not woken: the calling thread runs the event when it has finished its own turn.
    void enque(util::SharedPtr<comm::ActiveObjectEvent> event, Kind kind = Kind::any);
    // The same for a callable.
    template <class F>
    void post(F&& function) {
        enque(makeEvent(std::forward<F>(function)));
    }
    std::size_t pending() const;

    // Serves events, sockets and timers until `stop`, then runs what is still queued.
    void run() noexcept;
    void stop();
    // Serves what is queued and ready, without waiting, until there is nothing left. Returns the number of events run.
    std::size_t runPending();

    bool isCurrentThread() const noexcept { return current() == this; }
    // Counts the times that sockets were looked at.
    std::uint64_t turns() const noexcept { return turns_; }
    // The loop that the calling thread runs; null if it runs none.
    static Loop* current() noexcept { return current_; }
    // Ends the process if the calling thread does not run this loop: that is a bug, and a data race. Two instructions, so the
    // check is always compiled in.
    void checkThread() const noexcept {
        if (current_ != this) wrongThread();
    }
    // From now on, the thread that runs this loop lends itself to others that sleep.
    void lendThread();

    // Registers a descriptor until `remove`. Returns the registration's number, or 0 if the system has no room for it.
    std::uint32_t add(int fd, std::uint32_t events, std::shared_ptr<Pollable> pollable);
    void remove(int fd);
    // Changes the events that are waited for. Thread: any, while the registration exists.
    void modify(int fd, std::uint32_t registration, std::uint32_t events) noexcept;

    // Calls `flushable->flush()` when this drain is over. Asking again before that has no effect.
    void flushLater(std::shared_ptr<Flushable> flushable);
    // Whether this one asked last, so that it need not ask again.
    bool isFlushDue(const Flushable& flushable) const noexcept { return !dirty_.empty() && dirty_.back().get() == &flushable; }

    // A buffer for one large receive, shared by all sockets of the loop.
    std::span<std::uint8_t> receiveBuffer() noexcept {
        checkThread();
        return {receiveBuffer_.get(), receiveBufferSize};
    }

    static constexpr std::size_t receiveBufferSize = std::size_t{64} * 1024U;

private:
    friend class Timer;
    friend class ThreadLending;
    struct Registration {
        std::shared_ptr<Pollable> pollable;
        std::uint32_t serial = 0;
    };

    std::size_t runBatch();
    void runTaken();
    std::size_t pollOnce(bool isAsleep, int timeout);
    void fireTimers();
    void flushAll();
    Clock::time_point earliestDue() const noexcept;
    void wakeUp() noexcept;
    void wrongThread() const noexcept;

    inline static constinit thread_local Loop* current_ = nullptr;

    Descriptor epoll_;
    Descriptor wake_;
    std::unique_ptr<std::uint8_t[]> receiveBuffer_;

    mutable std::mutex mutex_;
    std::vector<util::SharedPtr<comm::ActiveObjectEvent>> queue_;
    bool isQueueBrief_ = true;  // every event in the queue is brief
    bool sleeping_ = false;     // and nobody has begun to wake it or to run its events
    bool stopping_ = false;
    std::atomic<bool> isRun_ = false;

    // Only for the thread that runs the loop, its own or a lender's:
    std::vector<util::SharedPtr<comm::ActiveObjectEvent>> batch_;
    std::vector<Registration> registrations_;  // by descriptor
    std::vector<std::shared_ptr<Pollable>> removed_;
    std::vector<std::shared_ptr<Flushable>> dirty_;
    std::vector<std::shared_ptr<Flushable>> flushing_;
    std::vector<Timer*> timers_;
    std::uint32_t nextSerial_ = 1;
    std::uint64_t turns_ = 0;
    ThreadLending lending_;
};

inline void Timer::arm(Clock::time_point due) noexcept {
    loop_.checkThread();
    due_ = due;
}

}  // namespace kelo::net
