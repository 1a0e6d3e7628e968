// Threads meet in one place: the list of raised signals, and with it an eventfd. A signal is in the list at most once, and the
// eventfd is written only if the list was empty, so a thousand answers cost one wake-up. The list holds flags, which are shared
// with whoever raises them and know their signal only until that is destroyed.
//
// All else belongs to the dispatcher's thread. A coroutine that waits stands in a signal's list or among the timers, or in both;
// whichever wakes it first takes it out of the other. Before it goes on it stands nowhere any more, so it may wait anew, and may
// destroy whatever it likes, others who wait among it. `dispatch` therefore takes one at a time and looks anew after each.
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
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>

namespace hmx::client {

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

    const int wakeUp;
    std::mutex mutex;
    std::vector<std::shared_ptr<Flag>> raised;
    bool isOver = false;  // the dispatcher is gone: flags kept here would keep this, and this them
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
    if (timers_.empty()) return {};
    return timers_.begin()->first;
}

void Dispatcher::dispatch() {
    if (dispatching_) throw std::logic_error{"Dispatcher::dispatch was called from a callback or a task"};
    // Of what is left over, because a callback threw or made more, the next call is reminded.
    struct Turn {
        explicit Turn(Dispatcher& dispatcher) : self{dispatcher} { self.dispatching_ = true; }
        ~Turn() {
            self.dispatching_ = false;
            if (!self.raised_.empty() || !self.finished_.empty()) self.shared_->wake();
        }
        Dispatcher& self;
    } const turn{*this};

    shared_->drain();
    {
        const std::lock_guard lock{shared_->mutex};
        for (std::shared_ptr<detail::Flag>& flag : shared_->raised) {
            flag->isRaised = false;
            raised_.push_back(std::move(flag));
        }
        shared_->raised.clear();
    }
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
        const std::optional<Clock::time_point> timer = nextTimer();
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
    detail::Shared& shared = *flag_->shared;
    bool isFirst = false;
    {
        const std::lock_guard lock{shared.mutex};
        if (flag_->isRaised || shared.isOver) return;
        flag_->isRaised = true;
        isFirst = shared.raised.empty();
        shared.raised.push_back(flag_);
    }
    if (isFirst) shared.wake();
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
