#include "net/loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <utility>

#include "kelo/std/global_error_handler.h"
#include "kelo/std/unhandled_error.h"
#include "tracing/channel.h"

// One turn of the loop is: run the events that are queued, write what they collected, sleep, serve the sockets that are ready,
// write again. Three rules keep it cheap and fair:
//
// - A post wakes the loop only if it sleeps. `sleeping_` is set under the queue's mutex, in the same section that found the queue
//   empty, so that no event can slip between the look and the sleep. The wake-up descriptor is edge-triggered and never read:
//   each write is one edge, which saves a system call a wake-up.
// - Events run in batches: the queue is swapped out whole, so that posting never waits for running, and both vectors keep their
//   memory. Sockets are looked at between batches, so a worker that is kept busy by events still reads its peers.
// - Output is collected while a batch or the ready sockets are served and written once afterwards, by the thread that produced
//   it.
//
// A wake-up costs more than most events do. So a thread may lend itself, as the runtime's does: when it posts a brief event to a
// loop that sleeps, it does not wake that loop but takes hold of it, and runs its events itself as soon as it has served its own
// sockets. It is then in every respect the thread of that loop; the loop's own, should something wake it in between, waits for
// the return. It writes after that return: to write is to wake the peer, of which the answer wakes the loop. Nothing is lost by
// it where there is much to do: a loop that is awake, or that has been posted anything but brief events, is never run but by its
// own thread. Timers that the events have armed need the sleeper's attention only if they fire before it would wake by itself;
// then an alarm is set, which is a system call but wakes nobody. A loop that is held cannot end, so a lender need not fear for
// its life.
//
// An event that throws is logged and over: it belongs to one request, which ends with what it held. What belongs to all (sockets,
// timers, what the runtime posts to itself) must not throw; there, want of memory ends the process, which is better than one that
// no longer knows what it tracks.
//
// A pollable that is removed while others of the same wake-up still wait for their turn must not be called again nor destroyed
// under its own feet: registrations carry a serial that stale reports fail to match, and removed ones are kept until the turn is
// over.
//
// Errors that are still stored when a batch or the ready sockets are done with are nobody's any more and are disposed of.

namespace kelo::net {
namespace {

const tracing::Channel channel{"KELO_LOOP"};
thread_local bool threadIsLent = false;

void execute(comm::ActiveObjectEvent& event) noexcept {
    try {
        event.execute();
    } catch (const std::exception& error) {
        tracing::logCV(channel, 4, "an event ended with an exception: %s", error.what());
    } catch (...) {
        tracing::logC(channel, 4, "an event ended with an unknown exception");
    }
}

// As epoll_wait takes it: rounded up, so that nothing is early.
int millisecondsUntil(Clock::time_point due) noexcept {
    constexpr int most = 60'000;
    if (due == Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, most));
}

constexpr std::uint64_t wakeTag = ~std::uint64_t{0};
constexpr std::size_t mostBorrowers = 16;

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
    loop_.timers_.push_back(this);
}

Timer::~Timer() {
    std::erase(loop_.timers_, this);
}

Loop::Loop()
    : epoll_{::epoll_create1(EPOLL_CLOEXEC)},
      wake_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)},
      alarm_{::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)},
      receiveBuffer_{std::make_unique_for_overwrite<std::uint8_t[]>(receiveBufferSize)} {
    if (!epoll_ || !wake_ || !alarm_ || !addEdge(epoll_.get(), wake_.get()) || !addEdge(epoll_.get(), alarm_.get())) {
        std::GlobalErrorHandler::doAbort("loop", "Loop", "no file descriptor is free for a worker's event loop");
    }
}

Loop::~Loop() = default;

bool Loop::isThreadLent() noexcept {
    return threadIsLent;
}

void Loop::lendThread() {
    borrowers_.reserve(mostBorrowers);
}

void Loop::enque(util::SharedPtr<comm::ActiveObjectEvent> event, Kind kind) {
    if (!event) return;
    {
        const std::lock_guard lock{mutex_};
        queue_.push_back(std::move(event));
        isQueueBrief_ = isQueueBrief_ && kind == Kind::brief;
        if (!std::exchange(sleeping_, false)) return;
        Loop* const current = current_;
        if (isQueueBrief_ && current != nullptr && current->borrowers_.size() < current->borrowers_.capacity()) {
            current->borrowers_.push_back(this);
            lender_ = current;
            return;
        }
    }
    wakeUp();
}

void Loop::wakeUp() noexcept {
    const std::uint64_t one = 1;
    // Cannot fail but for a counter that is full, which is an edge all the same.
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
        if (lender_ != nullptr && lender_ == current_) {
            // This thread is about to wait for that of the loop, which is not to wait for this one in turn.
            std::erase(lender_->borrowers_, this);
            lender_ = nullptr;
            lenderIsThrough_.notify_one();
        }
    }
    wakeUp();
}

void Loop::run() noexcept {
    Loop* const outer = std::exchange(current_, this);
    for (;;) {
        runBatch();
        serveBorrowers();
        {
            const std::lock_guard lock{mutex_};
            if (stopping_ && queue_.empty()) break;
        }
        pollOnce(true);
    }
    current_ = outer;
}

std::size_t Loop::runPending() {
    Loop* const outer = std::exchange(current_, this);
    std::size_t count = 0;
    for (std::size_t busy = 1; busy > 0;) {
        const std::size_t events = runBatch();
        busy = events + pollOnce(false);
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
        event.reset();  // an event's captures end with it, not with the batch
    }
    batch_.clear();
}

void Loop::serveBorrowers() noexcept {
    if (borrowers_.empty()) return;
    // None is added meanwhile: whoever is borrowing does not lend.
    for (Loop* const borrower : borrowers_) borrower->runOnThreadOf(*this);
    borrowers_.clear();
    flushAll();
    disposeOfUnhandledError();
}

// Runs what is queued and leaves to the lender, whose thread this is, what it has collected to be written.
void Loop::runOnThreadOf(Loop& lender) noexcept {
    bool isBrief = false;
    {
        const std::lock_guard lock{mutex_};
        isBrief = isQueueBrief_ && !stopping_;
        if (isBrief) batch_.swap(queue_);
    }
    if (isBrief) {
        Loop* const outer = std::exchange(current_, this);
        threadIsLent = true;
        runTaken();
        removed_.clear();
        for (auto& flushable : dirty_) lender.flushLater(std::move(flushable));
        dirty_.clear();
        threadIsLent = false;
        current_ = outer;
    }
    const auto due = earliestDue();
    // To the end under the lock: once that is released, the loop may end.
    const std::lock_guard lock{mutex_};
    lender_ = nullptr;
    if (isWaitingForLender_) {
        lenderIsThrough_.notify_one();
    } else if (!queue_.empty() || stopping_) {
        wakeUp();
    } else {
        sleeping_ = true;
        if (due < std::min(sleepsUntil_, alarmAt_)) setAlarm(due);
    }
}

std::size_t Loop::pollOnce(bool mayWait) {
    int timeout = 0;
    if (mayWait) {
        const auto due = earliestDue();
        const std::lock_guard lock{mutex_};
        if (queue_.empty() && !stopping_) {
            timeout = millisecondsUntil(due);
            fallAsleep(due);
        }
    }
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout);
    if (mayWait) {
        std::unique_lock lock{mutex_};
        isWaitingForLender_ = true;
        lenderIsThrough_.wait(lock, [this] { return lender_ == nullptr; });
        isWaitingForLender_ = false;
        sleeping_ = false;
    }
    std::size_t served = 0;
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

// With the lock held.
void Loop::fallAsleep(Clock::time_point due) noexcept {
    sleeping_ = true;
    sleepsUntil_ = due;
    if (alarmAt_ != Clock::time_point::max() && alarmAt_ != due) setAlarm(Clock::time_point::max());
}

// With the lock held. The latest of all times: no alarm.
void Loop::setAlarm(Clock::time_point due) noexcept {
    alarmAt_ = due;
    itimerspec when{};
    if (due != Clock::time_point::max()) {
        const auto sinceStart = std::max(due.time_since_epoch(), Clock::duration{1});
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
        when.it_value = {static_cast<time_t>(seconds.count()), static_cast<long>((sinceStart - seconds).count())};
    }
    ::timerfd_settime(alarm_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

void Loop::fireTimers() {
    if (std::none_of(timers_.begin(), timers_.end(), [](const Timer* timer) { return timer->isArmed(); })) return;
    const auto now = Clock::now();
    // A callback may create and destroy timers, this one included: after each call the walk begins again.
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
    if (std::find(dirty_.begin(), dirty_.end(), flushable) != dirty_.end()) return;
    try {
        if (dirty_.size() == dirty_.capacity()) dirty_.reserve(2 * dirty_.size() + 1);
    } catch (const std::exception&) {
        flushable->flush();  // no memory for putting it off
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
    const auto index = static_cast<std::size_t>(fd);
    if (index >= registrations_.size() || !registrations_[index].pollable) return;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    removed_.push_back(std::move(registrations_[index].pollable));
    registrations_[index] = {};
}

}  // namespace kelo::net
