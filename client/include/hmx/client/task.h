// Work that waits without holding up its thread: a coroutine, and what it will return.
//
// A task does nothing until it is given to one of three: `co_await` in another task, `Dispatcher::run`, which waits for it, or
// `Dispatcher::start`, which returns at once and calls back. Destroying a task ends it wherever it waits, and what it has asked
// is cancelled. Arguments of a coroutine are kept by value or outlive the task.
#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace hmx::client {

template <class T = void>
class Task;

namespace detail {

// Hands control back to the task that waits for this one.
struct FinalAwaiter {
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> self) const noexcept {
        return self.promise().waiting ? self.promise().waiting : std::noop_coroutine();
    }
    void await_resume() const noexcept {}
};

template <class T>
struct PromiseBase {
    std::coroutine_handle<> waiting{};
    std::exception_ptr failure{};

    std::suspend_always initial_suspend() const noexcept { return {}; }
    FinalAwaiter final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { failure = std::current_exception(); }
};

template <class T>
struct Promise : PromiseBase<T> {
    std::optional<T> result{};

    Task<T> get_return_object() noexcept;
    template <class Value>
    void return_value(Value&& value) {
        result.emplace(std::forward<Value>(value));
    }
    T take() {
        if (this->failure) std::rethrow_exception(this->failure);
        return std::move(*result);
    }
};

template <>
struct Promise<void> : PromiseBase<void> {
    Task<void> get_return_object() noexcept;
    void return_void() const noexcept {}
    void take() const {
        if (failure) std::rethrow_exception(failure);
    }
};

}  // namespace detail

// A resource: owns its coroutine. Thread: that of its dispatcher.
template <class T>
class [[nodiscard]] Task {
public:
    using promise_type = detail::Promise<T>;

    Task(Task&& other) noexcept : coroutine_{std::exchange(other.coroutine_, nullptr)} {}
    Task& operator=(Task&& other) noexcept {
        std::swap(coroutine_, other.coroutine_);
        return *this;
    }
    ~Task() {
        if (coroutine_) coroutine_.destroy();
    }

    // Begins the task; the caller goes on, with its result or its exception, when it has ended.
    auto operator co_await() && noexcept {
        struct Awaiter {
            std::coroutine_handle<promise_type> coroutine;
            bool await_ready() const noexcept { return false; }
            // One that ends at once leaves nothing on the stack.
            bool await_suspend(std::coroutine_handle<> waiting) const {
                coroutine.resume();
                if (coroutine.done()) return false;
                coroutine.promise().waiting = waiting;
                return true;
            }
            T await_resume() const { return coroutine.promise().take(); }
        };
        return Awaiter{coroutine_};
    }

private:
    friend promise_type;
    explicit Task(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_{coroutine} {}

    std::coroutine_handle<promise_type> coroutine_;
};

namespace detail {

template <class T>
Task<T> Promise<T>::get_return_object() noexcept {
    return Task<T>{std::coroutine_handle<Promise>::from_promise(*this)};
}
inline Task<void> Promise<void>::get_return_object() noexcept {
    return Task<void>{std::coroutine_handle<Promise>::from_promise(*this)};
}

}  // namespace detail
}  // namespace hmx::client
