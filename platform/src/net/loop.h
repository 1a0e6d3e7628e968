// The event loop that a worker sleeps in: a queue of events, readable sockets, timers, and one gathered send a drain.
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

// Something that has collected output and wants to write it once the current drain is over.
class Flushable {
public:
    virtual ~Flushable() = default;
    // Thread: that of the loop which drained.
    virtual void flush() = 0;
};

class Loop;

// Fires once, at or after its time: a time stamp that the loop looks at before it sleeps, so that arming and disarming cost a
// store. Thread: the loop's, construction and destruction included.
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

// A resource. Thread: any for `enque`, `pending`, `stop` and `isCurrentThread`; everything else on the thread that runs the loop.
class Loop {
public:
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // Whether an event may run on a thread that is only borrowed: then it waits for nobody and does not take long.
    enum class Kind : std::uint8_t { any, brief };

    // Queues an event; wakes the loop only if it sleeps, and not even then if the event is brief and the calling thread lends
    // itself: that runs it then, once it is through with its present turn.
    void enque(util::SharedPtr<comm::ActiveObjectEvent> event, Kind kind = Kind::any);
    // The same for a callable.
    template <class F>
    void post(F&& function) {
        enque(makeEvent(std::forward<F>(function)));
    }
    std::size_t pending() const;

    // Serves events, sockets and timers until `stop`, then what is still queued.
    void run() noexcept;
    void stop();
    // Serves what is queued and ready now, without waiting, until nothing is; the number of events run.
    std::size_t runPending();

    bool isCurrentThread() const noexcept { return current() == this; }
    // The loop that the calling thread is running; null on any other thread.
    static Loop* current() noexcept { return current_; }
    // Ends the process where the calling thread is not the one that runs this loop: a fault of ours, and a race in the making.
    // Two instructions, so that it is always there.
    void checkThread() const noexcept {
        if (current_ != this) wrongThread();
    }
    // From now on the thread that runs this loop lends itself to others that sleep.
    void lendThread();

    // Registers a descriptor until `remove`; the registration's number, or 0 when the system has no room for it.
    std::uint32_t add(int fd, std::uint32_t events, std::shared_ptr<Pollable> pollable);
    void remove(int fd);
    // Changes what is waited for. Thread: any, as long as the registration stands.
    void modify(int fd, std::uint32_t registration, std::uint32_t events) noexcept;

    // Has `flushable` written to once this drain is over. Asking again before that does nothing.
    void flushLater(std::shared_ptr<Flushable> flushable);
    // Whether it was the last that was asked for, so that asking again can be spared.
    bool isFlushDue(const Flushable& flushable) const noexcept { return !dirty_.empty() && dirty_.back().get() == &flushable; }

    // Room for one large receive, shared by all sockets of the loop.
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
    std::size_t pollOnce(bool mayWait);
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
    bool isQueueBrief_ = true;  // every event in the queue is
    bool sleeping_ = false;     // and nobody has set out to wake it, or to run it meanwhile
    bool stopping_ = false;
    std::atomic<bool> isRun_ = false;

    // Of the thread that runs the loop, its own or the lender's:
    std::vector<util::SharedPtr<comm::ActiveObjectEvent>> batch_;
    std::vector<Registration> registrations_;  // by descriptor
    std::vector<std::shared_ptr<Pollable>> removed_;
    std::vector<std::shared_ptr<Flushable>> dirty_;
    std::vector<std::shared_ptr<Flushable>> flushing_;
    std::vector<Timer*> timers_;
    std::uint32_t nextSerial_ = 1;
    ThreadLending lending_;
};

inline void Timer::arm(Clock::time_point due) noexcept {
    loop_.checkThread();
    due_ = due;
}

}  // namespace kelo::net
