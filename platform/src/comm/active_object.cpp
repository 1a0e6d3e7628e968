#include "comm/active_object.h"

#include <pthread.h>

#include <exception>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "comm/roll_call.h"
#include "net/loop.h"

// A worker is a thread around an event loop. Nothing inherits from it. Its owner declares it as the last member, so that it is
// destroyed first, while everything that its events use still exists.

namespace comm {
namespace {

// The kernel keeps 15 characters of a thread's name. Our names differ in what comes after their last dot.
std::string kernelName(const std::string& name) {
    constexpr std::size_t kept = 15;
    if (name.size() <= kept) return name;
    const auto dot = name.rfind('.');
    std::string shortened = dot == std::string::npos ? name : name.substr(dot + 1);
    shortened.resize(std::min(shortened.size(), kept));
    return shortened;
}

}  // namespace

struct ActiveObject::State {
    explicit State(std::string workerName) : name{std::move(workerName)} {}

    void enqueAfter(std::chrono::milliseconds delay, util::SharedPtr<ActiveObjectEvent> event) {
        if (!timer) timer.emplace(loop, [this] { enqueDue(); });
        later.emplace(kelo::net::Clock::now() + delay, std::move(event));
        timer->arm(later.begin()->first);
    }
    void enqueDue() noexcept {
        const auto now = kelo::net::Clock::now();
        try {
            while (!later.empty() && later.begin()->first <= now) {
                loop.enque(later.begin()->second);
                later.erase(later.begin());
            }
            if (!later.empty()) timer->arm(later.begin()->first);
        } catch (const std::exception&) {
            timer->arm(now + std::chrono::milliseconds{10});  // there may be memory again by then
        }
    }

    const std::string name;
    kelo::net::Loop loop;
    // Both belong to the thread that runs the loop; the timer is created when it is first needed.
    std::multimap<kelo::net::Clock::time_point, util::SharedPtr<ActiveObjectEvent>> later;
    std::optional<kelo::net::Timer> timer;
    std::thread thread;
};

ActiveObject::ActiveObject(std::string name) : state_{std::make_unique<State>(std::move(name))} {
    state_->thread = std::thread{[state = state_.get()] {
        ::pthread_setname_np(::pthread_self(), kernelName(state->name).c_str());
        state->loop.run();
        state->timer.reset();
    }};
    RollCall::join(state_->loop);
}

ActiveObject::ActiveObject(std::string name, ByHand) : state_{std::make_unique<State>(std::move(name))} {}

ActiveObject::~ActiveObject() {
    if (state_->thread.joinable()) {
        RollCall::leave(state_->loop);
        state_->loop.stop();
        state_->thread.join();
    } else {
        state_->loop.runPending();
    }
}

void ActiveObject::enque(util::SharedPtr<ActiveObjectEvent> event) {
    state_->loop.enque(std::move(event));
}

void ActiveObject::enqueBrief(util::SharedPtr<ActiveObjectEvent> event) {
    state_->loop.enque(std::move(event), kelo::net::Loop::Kind::brief);
}

void ActiveObject::enqueAfter(std::chrono::milliseconds delay, util::SharedPtr<ActiveObjectEvent> event) {
    state_->enqueAfter(delay, std::move(event));
}

void ActiveObject::dropLater() noexcept {
    state_->later.clear();
}

std::size_t ActiveObject::runPending() {
    return state_->loop.runPending();
}

std::size_t ActiveObject::pending() const {
    return state_->loop.pending();
}

const std::string& ActiveObject::name() const noexcept {
    return state_->name;
}

bool ActiveObject::isCurrentThread() const noexcept {
    return state_->loop.isCurrentThread();
}

kelo::net::Loop& ActiveObject::loop() noexcept {
    return state_->loop;
}

}  // namespace comm
