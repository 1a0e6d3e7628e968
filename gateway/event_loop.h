// The gateway's one loop: descriptors, timers, and what is done after each turn.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace hmxgateway {

class Timer;

// A descriptor that is closed. Thread: one at a time (a resource).
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : number_{number} {}
    Descriptor(Descriptor&& other) noexcept : number_{other.release()} {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor();

    int get() const noexcept { return number_; }
    int release() noexcept { return std::exchange(number_, -1); }
    explicit operator bool() const noexcept { return number_ >= 0; }

private:
    int number_ = -1;
};

// Thread: the one that runs it.
class EventLoop {
public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;

    // Errors: std::system_error.
    EventLoop();

    // Calls `ready` whenever one of `events` (EPOLLIN and so on) holds for the descriptor, until it is forgotten.
    void watch(int descriptor, std::uint32_t events, Task ready);
    void forget(int descriptor) noexcept;

    // Called after each turn, before the loop sleeps.
    void afterTurn(Task task) { afterTurn_ = std::move(task); }
    // Until `stop`. Errors: std::system_error.
    void run();
    void stop() noexcept { stopped_ = true; }
    // Does not sleep before the next turn.
    void again() noexcept { again_ = true; }

private:
    friend class Timer;

    int pause() const;

    Descriptor epoll_;
    std::unordered_map<int, std::shared_ptr<Task>> watched_;
    std::vector<Timer*> timers_;
    Task afterTurn_;
    bool stopped_ = false;
    bool again_ = false;
};

// Does something at a time, once. A resource; the loop outlives it. Thread: the loop's.
class Timer {
public:
    using Clock = EventLoop::Clock;

    Timer(EventLoop& loop, EventLoop::Task task);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void set(std::optional<Clock::time_point> at) noexcept { at_ = at; }
    const std::optional<Clock::time_point>& at() const noexcept { return at_; }

private:
    friend EventLoop;

    EventLoop& loop_;
    EventLoop::Task task_;
    std::optional<Clock::time_point> at_;
};

}  // namespace hmxgateway
