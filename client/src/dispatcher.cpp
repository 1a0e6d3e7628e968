// Threads meet in one place: the list of raised signals, and with it an eventfd. A signal is in the list at most once, and the
// eventfd is written only if the list was empty, so a thousand answers cost one wake-up. The list holds flags, which are shared
// with whoever raises them and know their signal only until that is destroyed.
//
// All else belongs to the dispatcher's thread. A coroutine that waits stands in a signal's list or among the timers, or in both;
// whichever wakes it first takes it out of the other. Before it goes on it stands nowhere any more, so it may wait anew, and may
// destroy whatever it likes, others who wait among it. `dispatch` therefore takes one at a time and looks anew after each.
//
// A dispatcher that is shared can be borrowed: whoever raises a signal, while nobody dispatches and nobody else has borrowed it,
// is the dispatcher's thread in every respect until that signal is answered. All that belongs to the dispatcher's thread passes
// from one to the other under the lock, which is not held meanwhile. The owner's thread is woken only for what is left over.
// Threads have other things to do, and who lets more come before it looks can pass over what is outdated, so they answer for at
// most half of the time; what comes beyond that, the owner's thread does.
//
// A started task that has ended is called back from `dispatch` alone, never from within the task or the call that started it: its
// coroutine is over by then and may be destroyed by its callback.

#include "hmx/client/dispatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace hmx::client {

namespace {

using Clock = Deadline::Clock;

// For how long other threads may answer at once; half of the time that passes is added.
constexpr Clock::duration mostCredit = std::chrono::milliseconds{1};

}  // namespace

namespace detail {

// Thread: any, for what stands under the lock.
struct Shared {
    Shared() : wakeUp{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {
        if (wakeUp < 0) throw Error{Error::Kind::system, std::string{"eventfd: "} + std::strerror(errno)};
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() { ::close(wakeUp); }

    void wake() const {
        const std::uint64_t one = 1;
        (void)!::write(wakeUp, &one, sizeof one);
    }
    // Makes the descriptor silent.
    void drain() const {
        std::uint64_t count = 0;
        (void)!::read(wakeUp, &count, sizeof count);
    }

    // Whether the calling thread is now the dispatcher's.
    bool borrowLocked() {
        if (sharer == nullptr || isDispatching || isBorrowed()) return false;
        const Clock::time_point now = Clock::now();
        credit = std::min(credit + (now - creditSince) / 2, mostCredit);
        creditSince = now;
        if (credit <= Clock::duration::zero()) return false;
        borrower = std::this_thread::get_id();
        return true;
    }
    bool isBorrowed() const noexcept { return borrower != std::thread::id{}; }
    // Whether the owner's thread has to be woken.
    bool giveBack() {
        const std::lock_guard lock{mutex};
        const Clock::time_point now = Clock::now();
        credit -= now - creditSince;
        creditSince = now;
        borrower = {};
        isReturned.notify_one();
        return !raised.empty();
    }
    // The borrower itself waits for nobody.
    void awaitReturnLocked(std::unique_lock<std::mutex>& lock) {
        isReturned.wait(lock, [this] { return !isBorrowed() || borrower == std::this_thread::get_id(); });
    }
    // Whether the caller is in a callback or a task.
    bool isWithin() {
        const std::lock_guard lock{mutex};
        return isDispatching || borrower == std::this_thread::get_id();
    }

    const int wakeUp;
    std::mutex mutex;
    std::condition_variable isReturned;
    std::vector<std::shared_ptr<Flag>> raised;
    bool isOver = false;           // the dispatcher is gone: flags kept here would keep this, and this them
    Dispatcher* sharer = nullptr;  // while it is shared
    bool isDispatching = false;    // the owner's thread
    std::thread::id borrower;      // the other thread that answers at the moment
    Clock::duration credit{0};
    Clock::time_point creditSince{};
};

struct Flag {
    std::shared_ptr<Shared> shared;
    bool isRaised = false;     // under the lock
    Signal* signal = nullptr;  // the dispatcher's thread's; null once that is gone
};

void Waiter::setTimer(Deadline::Clock::time_point at) {
    timer_ = dispatcher_.timers_.emplace(at, this);
}

void Waiter::leave() noexcept {
    if (timer_) dispatcher_.timers_.erase(*timer_);
    timer_.reset();
    if (list != nullptr) list->erase(std::remove(list->begin(), list->end(), this), list->end());
    list = nullptr;
}

void Waiter::wake() {
    leave();
    coroutine.resume();
}

void StateBase::finish() {
    dispatcher_.finished(shared_from_this());
}

}  // namespace detail

Operation::~Operation() {
    if (state_ != nullptr) state_->cancel();
}

bool Operation::isOpen() const noexcept {
    return state_ != nullptr && state_->isOpen();
}

Dispatcher::Dispatcher() : shared_{std::make_shared<detail::Shared>()} {}

Dispatcher::~Dispatcher() {
    const std::lock_guard lock{shared_->mutex};
    shared_->isOver = true;
    shared_->raised.clear();
}

int Dispatcher::descriptor() const noexcept {
    return shared_->wakeUp;
}

std::optional<Dispatcher::Clock::time_point> Dispatcher::nextTimer() const noexcept {
    std::unique_lock lock{shared_->mutex};
    shared_->awaitReturnLocked(lock);
    return firstTimer();
}

std::optional<Dispatcher::Clock::time_point> Dispatcher::firstTimer() const noexcept {
    if (timers_.empty()) return {};
    return timers_.begin()->first;
}

Dispatcher::Sharing::Sharing(Dispatcher& dispatcher) : dispatcher_{dispatcher} {
    const std::lock_guard lock{dispatcher.shared_->mutex};
    dispatcher.shared_->sharer = &dispatcher;
}

Dispatcher::Sharing::~Sharing() {
    std::unique_lock lock{dispatcher_.shared_->mutex};
    dispatcher_.shared_->awaitReturnLocked(lock);
    dispatcher_.shared_->sharer = nullptr;
}

// On the thread that has borrowed the dispatcher.
void Dispatcher::answer(const detail::Flag& flag) noexcept {
    const std::shared_ptr<detail::Shared> shared = shared_;
    const std::optional<Clock::time_point> timer = firstTimer();
    dispatching_ = true;
    try {
        if (flag.signal != nullptr) flag.signal->wakeAll();
    } catch (...) {
        failure_ = std::current_exception();
    }
    dispatching_ = false;
    const bool leavesMore = !raised_.empty() || !finished_.empty() || failure_ != nullptr;
    const bool isSooner = firstTimer() && (!timer || *firstTimer() < *timer);
    if (shared->giveBack() || leavesMore || isSooner) shared->wake();
}

void Dispatcher::dispatch() {
    if (shared_->isWithin()) throw std::logic_error{"Dispatcher::dispatch was called from a callback or a task"};
    // Of what is left over, because a callback threw or made more, the next call is reminded.
    struct Turn {
        explicit Turn(Dispatcher& dispatcher) : self{dispatcher} {
            std::unique_lock lock{self.shared_->mutex};
            self.shared_->awaitReturnLocked(lock);
            self.shared_->isDispatching = self.dispatching_ = true;
            for (std::shared_ptr<detail::Flag>& flag : self.shared_->raised) {
                flag->isRaised = false;
                self.raised_.push_back(std::move(flag));
            }
            self.shared_->raised.clear();
        }
        ~Turn() {
            if (!self.raised_.empty() || !self.finished_.empty()) self.shared_->wake();
            const std::lock_guard lock{self.shared_->mutex};
            self.shared_->isDispatching = self.dispatching_ = false;
        }
        Dispatcher& self;
    };

    shared_->drain();
    const Turn turn{*this};
    if (failure_ != nullptr) std::rethrow_exception(std::exchange(failure_, nullptr));
    const Clock::time_point now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first <= now) timers_.begin()->second->wake();
    while (!raised_.empty()) {
        const std::shared_ptr<detail::Flag> flag = std::move(raised_.front());
        raised_.pop_front();
        if (flag->signal != nullptr) flag->signal->wakeAll();
    }
    for (std::size_t left = finished_.size(); left > 0; --left) {
        const std::shared_ptr<detail::StateBase> state = std::move(finished_.front());
        finished_.pop_front();
        state->callBack();
    }
}

Dispatcher::Woken Dispatcher::wait(const std::optional<Deadline>& until, int watched) const {
    for (;;) {
        if (!finished_.empty() || !raised_.empty()) return Woken::news;
        const std::optional<Clock::time_point> timer = firstTimer();
        const bool timerIsFirst = timer && (!until || *timer <= until->at());
        const Clock::time_point end = timerIsFirst ? *timer : until ? until->at() : Clock::time_point::max();
        int milliseconds = -1;
        if (timer || until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
            milliseconds = static_cast<int>(std::clamp<std::int64_t>(left, 0, 60L * 60L * 1000L));
        }
        // Nothing is asked of the watched descriptor, so that only its other end's end is reported.
        std::array<pollfd, 2> waits{pollfd{shared_->wakeUp, POLLIN, 0}, pollfd{watched, 0, 0}};
        const int ready = ::poll(waits.data(), waits.size(), milliseconds);
        if (ready < 0 && errno != EINTR) throw Error{Error::Kind::system, std::string{"poll: "} + std::strerror(errno)};
        if (ready > 0 && (waits[1].revents & (POLLERR | POLLHUP)) != 0) return Woken::hungUp;
        if (ready > 0) return Woken::news;
        if (ready == 0 && Clock::now() >= end) return timerIsFirst ? Woken::news : Woken::time;
    }
}

Operation Dispatcher::begin(std::shared_ptr<detail::StateBase> state) {
    state->resume();
    return Operation{std::move(state)};
}

void Dispatcher::finished(std::shared_ptr<detail::StateBase> state) {
    finished_.push_back(std::move(state));
    if (!dispatching_) shared_->wake();
}

Signal::Signal(Dispatcher& dispatcher) : dispatcher_{dispatcher}, flag_{std::make_shared<detail::Flag>()} {
    flag_->shared = dispatcher.shared_;
    flag_->signal = this;
}

Signal::~Signal() {
    flag_->signal = nullptr;
    for (detail::Waiter* waiter : waiters_) waiter->list = nullptr;
}

void Signal::Raiser::raise() const {
    raise(false);
}

void Signal::Raiser::raiseOrAnswer() const {
    raise(true);
}

void Signal::Raiser::raise(bool mayAnswer) const {
    const std::shared_ptr<detail::Flag> flag = flag_;  // an answer may destroy this
    detail::Shared& shared = *flag->shared;
    Dispatcher* borrowed = nullptr;
    bool wakes = false;
    {
        const std::lock_guard lock{shared.mutex};
        if (flag->isRaised || shared.isOver) return;
        if (mayAnswer && shared.borrowLocked()) {
            borrowed = shared.sharer;
        } else {
            flag->isRaised = true;
            wakes = shared.raised.empty() && !shared.isBorrowed();  // who has borrowed it looks again
            shared.raised.push_back(flag);
        }
    }
    if (borrowed != nullptr) borrowed->answer(*flag);
    if (wakes) shared.wake();
}

void Signal::raiseHere() {
    if (std::exchange(isRaisedHere_, true)) return;
    dispatcher_.raised_.push_back(flag_);
    if (!dispatcher_.dispatching_) flag_->shared->wake();
}

void Signal::wakeAll() {
    isRaisedHere_ = false;
    const std::shared_ptr<detail::Flag> flag = flag_;
    if (callback_) {
        const std::function<void()> callback = callback_;  // it may destroy the signal, and with it itself
        callback();
    }
    // Those who begin to wait meanwhile stand behind the others.
    for (std::size_t left = flag->signal != nullptr ? waiters_.size() : 0; left > 0; --left) {
        if (flag->signal == nullptr || waiters_.empty()) return;
        waiters_.front()->wake();
    }
}

}  // namespace hmx::client
