#include "event_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace hmxgateway {

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

EventLoop::EventLoop() : epoll_{::epoll_create1(EPOLL_CLOEXEC)} {
    if (!epoll_) throw std::system_error{errno, std::generic_category(), "epoll_create1"};
}

void EventLoop::watch(int descriptor, std::uint32_t events, Task ready) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
        throw std::system_error{errno, std::generic_category(), "epoll_ctl"};
    }
    watched_[descriptor] = std::make_shared<Task>(std::move(ready));
}

void EventLoop::forget(int descriptor) noexcept {
    if (watched_.erase(descriptor) > 0) (void)::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

// In milliseconds, until the first timer; -1: for ever.
int EventLoop::pause() const {
    std::optional<Clock::time_point> first;
    for (const Timer* timer : timers_) {
        if (timer->at_ && (!first || *timer->at_ < *first)) first = timer->at_;
    }
    if (!first) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
}

void EventLoop::run() {
    std::array<epoll_event, 64> events{};
    while (!stopped_) {
        const int most = std::exchange(again_, false) ? 0 : pause();
        const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), most);
        if (count < 0 && errno != EINTR) throw std::system_error{errno, std::generic_category(), "epoll_wait"};
        for (int i = 0; i < count; ++i) {
            const auto found = watched_.find(events[static_cast<std::size_t>(i)].data.fd);
            if (found == watched_.end()) continue;
            const std::shared_ptr<Task> task = found->second;  // which may forget itself
            (*task)();
        }
        const Clock::time_point now = Clock::now();
        for (std::size_t i = 0; i < timers_.size(); ++i) {
            Timer& timer = *timers_[i];
            if (!timer.at_ || *timer.at_ > now) continue;
            timer.at_.reset();
            timer.task_();
        }
        if (afterTurn_) afterTurn_();
    }
}

Timer::Timer(EventLoop& loop, EventLoop::Task task) : loop_{loop}, task_{std::move(task)} {
    loop_.timers_.push_back(this);
}

Timer::~Timer() {
    std::erase(loop_.timers_, this);
}

}  // namespace hmxgateway
