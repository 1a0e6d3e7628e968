#include "timers.h"

#include <pthread.h>

#include "kelo/func_call_event.h"

namespace hmxsim {

SteadyTimers::SteadyTimers(comm::ActiveObject& worker) : worker_{worker}, thread_{[this] { run(); }} {}

SteadyTimers::~SteadyTimers() {
    stop();
}

void SteadyTimers::at(Time due, Callback callback) {
    const std::lock_guard lock{mutex_};
    if (stopped_) return;
    const auto entry = waiting_.emplace(std::pair{due, ++asked_}, std::move(callback)).first;
    if (entry == waiting_.begin()) wake_.notify_one();
}

void SteadyTimers::stop() {
    std::map<std::pair<Time, std::uint64_t>, Callback> dropped;  // destroyed without the lock: a callback may own anything
    {
        const std::lock_guard lock{mutex_};
        stopped_ = true;
        dropped.swap(waiting_);
    }
    wake_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void SteadyTimers::run() {
    pthread_setname_np(pthread_self(), "hmxsim.timers");
    std::unique_lock lock{mutex_};
    while (!stopped_) {
        if (waiting_.empty()) {
            wake_.wait(lock);
        } else if (const Time due = waiting_.begin()->first.first; due > now()) {
            wake_.wait_until(lock, due);
        } else {
            Callback callback = std::move(waiting_.begin()->second);
            waiting_.erase(waiting_.begin());
            lock.unlock();
            kelo::post(worker_, std::move(callback));
            lock.lock();
        }
    }
}

}  // namespace hmxsim
