// A function that any thread may call, and that can be replaced while others do.
#pragma once

#include <atomic>
#include <mutex>

namespace tracing {

// Constant-initialised, so that it can be called at any time. No lock is held while the function runs. Thread: any.
template <class... Arguments>
class Replaceable {
public:
    using Function = void (*)(Arguments... arguments, void* context);

    // False if there is no function.
    bool call(Arguments... arguments) noexcept {
        if (!present_.load(std::memory_order_acquire)) return false;
        std::unique_lock lock{mutex_};
        const Function function = function_;
        void* const context = context_;
        if (function == nullptr) return false;
        ++underWay_;
        lock.unlock();
        function(arguments..., context);
        if (--underWay_ == 0) underWay_.notify_all();
        return true;
    }

    // Null for none. When this returns, no call of the previous function is under way, so what it refers to may be destroyed.
    // Must not be called by the function.
    void replace(Function function, void* context) noexcept {
        {
            const std::lock_guard lock{mutex_};
            function_ = function;
            context_ = context;
            present_.store(function != nullptr, std::memory_order_release);
        }
        for (int calls = underWay_; calls != 0; calls = underWay_) underWay_.wait(calls);
    }

private:
    std::mutex mutex_;
    Function function_ = nullptr;
    void* context_ = nullptr;
    std::atomic<bool> present_{false};  // avoids the lock if there is none
    std::atomic<int> underWay_{0};
};

}  // namespace tracing
