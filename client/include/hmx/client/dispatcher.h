// Where answers, changes and timers wait for the program's own thread.
#pragma once

#include <chrono>
#include <coroutine>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "hmx/client/deadline.h"
#include "hmx/client/outcome.h"
#include "hmx/client/task.h"

namespace hmx::client {

class Dispatcher;

namespace detail {

struct Shared;
struct Flag;

// One of those who wait, in a timer's list or a signal's. Its place is its address.
class Waiter {
public:
    explicit Waiter(Dispatcher& dispatcher) noexcept : dispatcher_{dispatcher} {}
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    ~Waiter() { leave(); }

    void setTimer(Deadline::Clock::time_point at);
    void leave() noexcept;
    void wake();

    std::coroutine_handle<> coroutine{};
    std::vector<Waiter*>* list = nullptr;

private:
    friend Dispatcher;
    using Timers = std::multimap<Deadline::Clock::time_point, Waiter*>;
    Dispatcher& dispatcher_;
    std::optional<Timers::iterator> timer_;
};

// The coroutine at the bottom of a started task.
class Root {
public:
    struct promise_type {
        Root get_return_object() noexcept { return Root{std::coroutine_handle<promise_type>::from_promise(*this)}; }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_always final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
    };

    Root() = default;
    Root(Root&& other) noexcept : coroutine_{std::exchange(other.coroutine_, nullptr)} {}
    Root& operator=(Root&& other) noexcept {
        std::swap(coroutine_, other.coroutine_);
        return *this;
    }
    ~Root() {
        if (coroutine_) coroutine_.destroy();
    }
    void resume() const { coroutine_.resume(); }

private:
    explicit Root(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_{coroutine} {}
    std::coroutine_handle<promise_type> coroutine_;
};

// A started task, shared by its operation and, once it has ended, the dispatcher.
class StateBase : public std::enable_shared_from_this<StateBase> {
public:
    explicit StateBase(Dispatcher& dispatcher) noexcept : dispatcher_{dispatcher} {}
    StateBase(const StateBase&) = delete;
    StateBase& operator=(const StateBase&) = delete;
    virtual ~StateBase() = default;

    virtual void callBack() = 0;
    virtual void cancel() noexcept = 0;
    bool isOpen() const noexcept { return open_; }
    void resume() const { root_.resume(); }

protected:
    void finish();

    Root root_;
    std::exception_ptr failure_;
    bool open_ = true;

private:
    Dispatcher& dispatcher_;
};

template <class T>
class State final : public StateBase {
public:
    State(Dispatcher& dispatcher, Task<T> task, std::function<void(Outcome<T>)> done)
        : StateBase{dispatcher}, done_{std::move(done)} {
        root_ = drive(*this, std::move(task));
    }

    void callBack() override {
        if (!std::exchange(open_, false)) return;
        root_ = {};  // with all that the task still held
        if (failure_) std::rethrow_exception(failure_);
        const std::function<void(Outcome<T>)> done = std::exchange(done_, nullptr);
        done(std::move(*outcome_));
    }
    void cancel() noexcept override {
        open_ = false;
        root_ = {};
        done_ = nullptr;
    }

private:
    static Root drive(State& state, Task<T> task) {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(task);
                state.outcome_.emplace();
            } else {
                state.outcome_.emplace(co_await std::move(task));
            }
        } catch (const Error& error) {
            state.outcome_.emplace(error);
        } catch (...) {
            state.failure_ = std::current_exception();
        }
        state.finish();
    }

    std::function<void(Outcome<T>)> done_;
    std::optional<Outcome<T>> outcome_;
};

}  // namespace detail

// A task that was started. Destroying it ends the task, and its callback does not come any more. A resource.
// Thread: the dispatcher's.
class [[nodiscard]] Operation {
public:
    Operation() = default;
    Operation(Operation&&) noexcept = default;
    Operation& operator=(Operation&& other) noexcept {
        std::swap(state_, other.state_);
        return *this;
    }
    ~Operation();

    // Whether the callback is still to come.
    bool isOpen() const noexcept;

private:
    friend Dispatcher;
    explicit Operation(std::shared_ptr<detail::StateBase> state) noexcept : state_{std::move(state)} {}
    std::shared_ptr<detail::StateBase> state_;
};

// One thread's: that on which everything that stands on it lives, and on which all callbacks come, unless it is shared. It has no
// thread of its own.
//
// A program with a loop of its own polls `descriptor()` for reading, not past `nextTimer()`, and calls `dispatch()` after each
// poll. A program without one calls `run`. A resource. Thread: its owner's.
class Dispatcher {
public:
    using Clock = Deadline::Clock;

    // Errors: Error, system.
    Dispatcher();
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    // Readable while something waits for `dispatch`. Owned by this object.
    int descriptor() const noexcept;
    // When `dispatch` is to be called even if the descriptor is silent; nothing: not before it is readable.
    std::optional<Clock::time_point> nextTimer() const noexcept;
    // Does what has arrived and what is due, and calls back. Never blocks. What arrives meanwhile waits for the next call, so
    // that its turn is limited. Not from a callback.
    void dispatch();

    enum class Woken : std::uint8_t { news, time, hungUp };
    // While it exists, its owner's thread does nothing but wait and dispatch, and what arrives through `raiseOrAnswer` is
    // answered by the thread that brings it, unless somebody is dispatching: that saves waking the owner's thread. A resource.
    // Thread: the owner's.
    class Sharing {
    public:
        explicit Sharing(Dispatcher& dispatcher);
        ~Sharing();  // waits for whoever is answering
        Sharing(const Sharing&) = delete;
        Sharing& operator=(const Sharing&) = delete;

    private:
        Dispatcher& dispatcher_;
    };

    // Blocks until there is something to dispatch, until `until`, or until the other end of the descriptor `watched`, if it is
    // not negative, is closed. Dispatches nothing. Errors: Error, system.
    Woken wait(const std::optional<Deadline>& until, int watched = -1) const;

    // Does the task and returns its result; blocks meanwhile, and dispatches everything else, too. Throws what the task throws.
    // Not from a callback or a task.
    template <class T>
    T run(Task<T> task) {
        std::optional<Outcome<T>> outcome;
        const Operation operation = start(std::move(task), [&](Outcome<T> result) { outcome.emplace(std::move(result)); });
        while (!outcome) {
            dispatch();
            if (!outcome) (void)wait({});
        }
        return std::move(*outcome).value();
    }

    // Begins the task. `done` is called once, from a later `dispatch`, with its result or its Error; any other exception of the
    // task leaves that `dispatch`. `done` may destroy the operation.
    template <class T>
    Operation start(Task<T> task, std::function<void(Outcome<T>)> done) {
        return begin(std::make_shared<detail::State<T>>(*this, std::move(task), std::move(done)));
    }
    template <class T, class F>
    Operation start(Task<T> task, F done) {
        return start(std::move(task), std::function<void(Outcome<T>)>{std::move(done)});
    }

    // co_await dispatcher.pause(20ms)
    auto pause(std::chrono::milliseconds duration) { return Pause{*this, Deadline{duration}}; }

private:
    friend class detail::Waiter;
    friend class detail::StateBase;
    friend class Signal;

    class Pause {
    public:
        Pause(Dispatcher& dispatcher, Deadline until) : waiter_{dispatcher}, until_{until} {}
        bool await_ready() const { return until_.passed(); }
        void await_suspend(std::coroutine_handle<> coroutine) {
            waiter_.coroutine = coroutine;
            waiter_.setTimer(until_.at());
        }
        void await_resume() const noexcept {}

    private:
        detail::Waiter waiter_;
        Deadline until_;
    };

    Operation begin(std::shared_ptr<detail::StateBase> state);
    void finished(std::shared_ptr<detail::StateBase> state);
    void answer(const detail::Flag& flag) noexcept;
    std::optional<Clock::time_point> firstTimer() const noexcept;

    std::shared_ptr<detail::Shared> shared_;
    detail::Waiter::Timers timers_;
    std::deque<std::shared_ptr<detail::Flag>> raised_;  // taken over, not yet looked after
    std::deque<std::shared_ptr<detail::StateBase>> finished_;
    std::exception_ptr failure_;  // of another thread's answer
    bool dispatching_ = false;
};

// Says from any thread that there is something to look at. What raises it may outlive it.
class Signal {
public:
    // Thread: any (shared).
    class Raiser {
    public:
        // Wakes all who wait; remembered for nobody.
        void raise() const;
        // The same, but while the dispatcher is shared the callback may be called from within, on this thread. The calling thread
        // holds no lock that the callback takes.
        void raiseOrAnswer() const;

    private:
        friend Signal;
        explicit Raiser(std::shared_ptr<detail::Flag> flag) noexcept : flag_{std::move(flag)} {}
        void raise(bool mayAnswer) const;
        std::shared_ptr<detail::Flag> flag_;
    };

    // A resource. Thread: the dispatcher's, as for all but `Raiser`.
    explicit Signal(Dispatcher& dispatcher);
    ~Signal();
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    Raiser raiser() const { return Raiser{flag_}; }
    // The same on the dispatcher's own thread. Those who wait are never woken from within.
    void raiseHere();
    Dispatcher& dispatcher() const noexcept { return dispatcher_; }
    // Called from `dispatch` whenever it was raised, before those who wait go on. It may destroy the signal.
    void onRaised(std::function<void()> callback) { callback_ = std::move(callback); }

    // co_await signal.raised(until): until it is raised, at most until then. Look at what it stands for before, and again after.
    auto raised(std::optional<Deadline> until = {}) { return Raised{*this, until}; }

private:
    friend Dispatcher;

    class Raised {
    public:
        Raised(Signal& signal, std::optional<Deadline> until) : signal_{signal}, waiter_{signal.dispatcher_}, until_{until} {}
        bool await_ready() const { return until_ && until_->passed(); }
        void await_suspend(std::coroutine_handle<> coroutine) {
            waiter_.coroutine = coroutine;
            waiter_.list = &signal_.waiters_;
            signal_.waiters_.push_back(&waiter_);
            if (until_) waiter_.setTimer(until_->at());
        }
        void await_resume() const noexcept {}

    private:
        Signal& signal_;
        detail::Waiter waiter_;
        std::optional<Deadline> until_;
    };

    void wakeAll();

    Dispatcher& dispatcher_;
    std::shared_ptr<detail::Flag> flag_;
    std::vector<detail::Waiter*> waiters_;
    std::function<void()> callback_;
    bool isRaisedHere_ = false;
};

}  // namespace hmx::client
