// Timers whose callbacks run on the simulator's worker.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "comm/active_object.h"

namespace hmxsim {

// Thread: the worker.
class Timers {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Callback = std::function<void()>;

    virtual ~Timers() = default;
    virtual Time now() const = 0;
    // Runs `callback` on the worker at `due` or soon after, callbacks of the same moment in the order of asking; never inside
    // this call.
    virtual void at(Time due, Callback callback) = 0;
};

// On the steady clock, with a thread of its own that sleeps until the next is due. Thread: any.
class SteadyTimers final : public Timers {
public:
    // `worker` outlives this.
    explicit SteadyTimers(comm::ActiveObject& worker);
    ~SteadyTimers() override;
    SteadyTimers(const SteadyTimers&) = delete;
    SteadyTimers& operator=(const SteadyTimers&) = delete;

    Time now() const override { return std::chrono::steady_clock::now(); }
    void at(Time due, Callback callback) override;
    // Forgets what is not due yet, and what is asked for later; nothing is handed to the worker any more. Not on the worker.
    void stop();

private:
    void run();

    comm::ActiveObject& worker_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::map<std::pair<Time, std::uint64_t>, Callback> waiting_;  // by moment, then by order of asking
    std::uint64_t asked_ = 0;
    bool stopped_ = false;
    std::thread thread_;
};

}  // namespace hmxsim
