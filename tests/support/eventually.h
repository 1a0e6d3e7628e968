// Waits in tests for what other threads or processes do: with a time limit, and no longer than needed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace testing_support {

inline constexpr std::chrono::seconds patience{10};

// Checks every millisecond, for conditions that nobody signals. True once it holds, false at the time limit.
template <class Predicate>
bool eventually(Predicate holds, std::chrono::milliseconds limit = patience) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    return true;
}

// A value that threads change and a test waits for. Thread: any.
template <class T>
class Watched {
public:
    template <class Change>
    void change(Change change) {
        const std::lock_guard lock{mutex_};
        change(value_);
        changed_.notify_all();  // still locked: a waiter may destroy this as soon as the lock is free
    }
    // True once the predicate holds; false at the time limit.
    template <class Predicate>
    bool waitFor(Predicate holds, std::chrono::milliseconds limit = patience) {
        std::unique_lock lock{mutex_};
        return changed_.wait_for(lock, limit, [&] { return holds(std::as_const(value_)); });
    }
    T get() const {
        const std::lock_guard lock{mutex_};
        return value_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    T value_{};
};

}  // namespace testing_support
