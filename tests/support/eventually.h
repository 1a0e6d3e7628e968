// Waiting in tests for what other threads or processes bring about: bounded, and never longer than it takes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace testing_support {

inline constexpr std::chrono::seconds patience{10};

// A value that threads change and a test waits on. Thread: any.
template <class T>
class Watched {
public:
    template <class Change>
    void change(Change change) {
        const std::lock_guard lock{mutex_};
        change(value_);
        changed_.notify_all();  // still locked: whoever waits may destroy this as soon as the lock is free
    }
    // True once the predicate holds; false when patience ends.
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
