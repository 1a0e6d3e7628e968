#include "net/loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <utility>

#include "kelo/std/global_error_handler.h"
#include "kelo/std/unhandled_error.h"
#include "tracing/channel.h"

// One turn of the loop: run the queued events, write the output that they collected, sleep, serve the sockets that are ready,
// write again. Three rules keep it cheap and fair:
//
// - A post wakes the loop only if it sleeps. `sleeping_` is set under the queue's mutex, in the same section that found the queue
//   empty, so no event can slip in between the check and the sleep. The wake-up descriptor is edge-triggered and never read: each
//   write is one edge, which saves a system call per wake-up.
// - Events run in batches: the queue is swapped out as a whole, so posting never waits for running, and both vectors keep their
//   memory. Sockets are checked between batches, so a worker that is kept busy by events still reads its peers.
// - Output is collected while a batch or the ready sockets are served, and then written once by the thread that produced it.
//
// thread_lending.cpp explains how a thread runs the events of another loop that sleeps. This file only asks it before it wakes a
// loop, and waits for it after waking up.
//
// An event that throws is logged and is over: it belongs to one request, which ends with it. What belongs to everybody (sockets,
// timers, what the runtime posts to itself) must not throw. If memory runs out there, the process ends, which is better than a
// process that no longer knows what it tracks.
//
// A pollable that is removed while others of the same wake-up are still waiting must not be called again, and must not be
// destroyed during its own call. So registrations have a serial that outdated reports do not match, and removed pollables are
// kept until the turn is over.
//
// Errors that are still stored after a batch or the ready sockets have been served belong to nobody any more and are disposed of.

namespace kelo::net {
namespace {

const tracing::Channel channel{"KELO_LOOP"};

void execute(comm::ActiveObjectEvent& event) noexcept {
    try {
        event.execute();
    } catch (const std::exception& error) {
        tracing::logCV(channel, 4, "an event ended with an exception: %s", error.what());
    } catch (...) {
        tracing::logC(channel, 4, "an event ended with an unknown exception");
    }
}

// The timeout for epoll_wait: rounded up, so that nothing fires early.
int millisecondsUntil(Clock::time_point due) noexcept {
    constexpr int most = 60'000;
    if (due == Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, most));
}

constexpr std::uint64_t wakeTag = ~std::uint64_t{0};

bool addEdge(int epoll, int fd) noexcept {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.u64 = wakeTag;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

std::uint64_t tagOf(int fd, std::uint32_t serial) noexcept {
    return static_cast<std::uint64_t>(serial) << 32U | static_cast<std::uint32_t>(fd);
}

}  // namespace

Timer::Timer(Loop& loop, std::function<void()> onDue) : loop_{loop}, onDue_{std::move(onDue)} {
    loop_.checkThread();
    loop_.timers_.push_back(this);
}

Timer::~Timer() {
    loop_.checkThread();
    std::erase(loop_.timers_, this);
}

Loop::Loop()
    : epoll_{::epoll_create1(EPOLL_CLOEXEC)},
      wake_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)},
      receiveBuffer_{std::make_unique_for_overwrite<std::uint8_t[]>(receiveBufferSize)},
      lending_{*this} {
    if (!epoll_ || !wake_ || lending_.alarm() < 0 || !addEdge(epoll_.get(), wake_.get()) ||
        !addEdge(epoll_.get(), lending_.alarm())) {
        std::GlobalErrorHandler::doAbort("loop", "Loop", "no file descriptor is free for a worker's event loop");
    }
}

Loop::~Loop() = default;

void Loop::lendThread() {
    checkThread();
    lending_.allow();
}

void Loop::wrongThread() const noexcept {
    // While nobody runs the loop, before or after, it may be used by its owner.
    if (!isRun_) return;
    std::GlobalErrorHandler::doAbort("loop", "checkThread", "what belongs to a worker's thread was used on another");
}

void Loop::enque(util::SharedPtr<comm::ActiveObjectEvent> event, Kind kind) {
    if (!event) return;
    {
        const std::lock_guard lock{mutex_};
        queue_.push_back(std::move(event));
        isQueueBrief_ = isQueueBrief_ && kind == Kind::brief;
        if (!std::exchange(sleeping_, false)) return;
        if (isQueueBrief_ && lending_.holdLocked(current_)) return;
    }
    wakeUp();
}

void Loop::wakeUp() noexcept {
    const std::uint64_t one = 1;
    // Can only fail if the counter is full, and then there is an edge anyway.
    [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof one);
}

std::size_t Loop::pending() const {
    const std::lock_guard lock{mutex_};
    return queue_.size();
}

void Loop::stop() {
    {
        const std::lock_guard lock{mutex_};
        stopping_ = true;
        sleeping_ = false;
        lending_.releaseLocked(current_);
    }
    wakeUp();
}

void Loop::run() noexcept {
    Loop* const outer = std::exchange(current_, this);
    isRun_ = true;
    for (;;) {
        runBatch();
        lending_.serveBorrowers();
        const auto due = earliestDue();
        bool isAsleep = false;
        {
            const std::lock_guard lock{mutex_};
            isAsleep = queue_.empty();
            if (isAsleep) {
                if (stopping_) break;
                sleeping_ = true;
                lending_.sleepLocked(due);
            }
        }
        pollOnce(isAsleep, isAsleep ? millisecondsUntil(due) : 0);
    }
    isRun_ = false;
    current_ = outer;
}

std::size_t Loop::runPending() {
    Loop* const outer = std::exchange(current_, this);
    std::size_t count = 0;
    for (std::size_t busy = 1; busy > 0;) {
        const std::size_t events = runBatch();
        busy = events + pollOnce(false, 0);
        count += events;
    }
    current_ = outer;
    return count;
}

std::size_t Loop::runBatch() {
    {
        const std::lock_guard lock{mutex_};
        batch_.swap(queue_);
        isQueueBrief_ = true;
    }
    const std::size_t count = batch_.size();
    runTaken();
    if (count > 0) flushAll();
    disposeOfUnhandledError();
    return count;
}

void Loop::runTaken() {
    for (auto& event : batch_) {
        execute(*event);
        event.reset();  // an event's captures are destroyed with it, not with the batch
    }
    batch_.clear();
}

std::size_t Loop::pollOnce(bool isAsleep, int timeout) {
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout);
    if (isAsleep) {
        std::unique_lock lock{mutex_};
        lending_.awaitReturnLocked(lock);
        sleeping_ = false;
    }
    std::size_t served = 0;
    ++turns_;
    for (int i = 0; i < count; ++i) {
        const auto& event = events[static_cast<std::size_t>(i)];
        if (event.data.u64 == wakeTag) continue;
        const auto fd = static_cast<std::size_t>(static_cast<std::uint32_t>(event.data.u64));
        const auto serial = static_cast<std::uint32_t>(event.data.u64 >> 32U);
        if (fd >= registrations_.size() || registrations_[fd].serial != serial) continue;
        registrations_[fd].pollable->onReady(event.events);
        ++served;
    }
    fireTimers();
    flushAll();
    removed_.clear();
    disposeOfUnhandledError();
    return served;
}

Clock::time_point Loop::earliestDue() const noexcept {
    auto due = Clock::time_point::max();
    for (const Timer* timer : timers_) due = std::min(due, timer->due_);
    return due;
}

void Loop::fireTimers() {
    if (std::none_of(timers_.begin(), timers_.end(), [](const Timer* timer) { return timer->isArmed(); })) return;
    const auto now = Clock::now();
    // A callback may create and destroy timers, including this one, so the search restarts after each call.
    for (bool fired = true; fired;) {
        fired = false;
        for (Timer* timer : timers_) {
            if (timer->due_ > now) continue;
            timer->disarm();
            const auto onDue = timer->onDue_;
            onDue();
            fired = true;
            break;
        }
    }
}

void Loop::flushLater(std::shared_ptr<Flushable> flushable) {
    checkThread();
    if (std::find(dirty_.begin(), dirty_.end(), flushable) != dirty_.end()) return;
    try {
        if (dirty_.size() == dirty_.capacity()) dirty_.reserve(2 * dirty_.size() + 1);
    } catch (const std::exception&) {
        flushable->flush();  // no memory to do it later
        return;
    }
    dirty_.push_back(std::move(flushable));
}

void Loop::flushAll() {
    while (!dirty_.empty()) {
        flushing_.swap(dirty_);
        for (auto& flushable : flushing_) flushable->flush();
        flushing_.clear();
    }
}

std::uint32_t Loop::add(int fd, std::uint32_t events, std::shared_ptr<Pollable> pollable) {
    checkThread();
    const auto index = static_cast<std::size_t>(fd);
    if (index >= registrations_.size()) registrations_.resize(index + 1);
    removed_.reserve(registrations_.capacity());  // so that removing needs no memory
    const std::uint32_t serial = nextSerial_;
    if (++nextSerial_ == 0) nextSerial_ = 1;
    epoll_event event{};
    event.events = events;
    event.data.u64 = tagOf(fd, serial);
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) return 0;
    registrations_[index] = {std::move(pollable), serial};
    return serial;
}

void Loop::modify(int fd, std::uint32_t registration, std::uint32_t events) noexcept {
    epoll_event event{};
    event.events = events;
    event.data.u64 = tagOf(fd, registration);
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void Loop::remove(int fd) {
    checkThread();
    const auto index = static_cast<std::size_t>(fd);
    if (index >= registrations_.size() || !registrations_[index].pollable) return;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    removed_.push_back(std::move(registrations_[index].pollable));
    registrations_[index] = {};
}

}  // namespace kelo::net
