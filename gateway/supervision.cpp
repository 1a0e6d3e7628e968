#include "supervision.h"

#include <chrono>

namespace hmxgateway {
namespace {

constexpr std::chrono::milliseconds untilTellingAgain{100};
constexpr std::chrono::seconds pauseOfSearch{1};

}  // namespace

Supervision::Supervision(EventLoop& loop, hmx::client::Client& client)
    : client_{client},
      watchdog_{notifier_},
      signs_{loop,
             [this] {
                 const auto next = watchdog_.turn();
                 if (next != kelo::supervisor::Watchdog::TimePoint::max()) signs_.set(next);
             }},
      again_{loop, [] {}},
      search_{loop, [this] { search(); }} {
    if (notifier_.isWanted()) signs_.set(EventLoop::Clock::now());
}

Supervision::~Supervision() {
    (void)notifier_.tell("STOPPING=1\nSTATUS=ending");
}

void Supervision::turn() {
    if (!notifier_.isWanted()) return;
    const std::string& service = client_.options().service;
    const bool isThere = client_.domain().isAlive(client_.placeOf(service));
    if (!isThere && !search_.at()) search_.set(EventLoop::Clock::now() + pauseOfSearch);
    const std::string state = isThere ? "serving " + service : "waiting for " + service;
    if (state == told_) return;
    if (notifier_.tell((told_.empty() ? "READY=1\nSTATUS=" : "STATUS=") + state)) {
        told_ = state;
    } else {
        again_.set(EventLoop::Clock::now() + untilTellingAgain);
    }
}

// A service is followed from the first look at it that found its domain. This may have to be repeated until then.
void Supervision::search() {
    const hmx::client::Deadline deadline{std::chrono::milliseconds{100}};
    attaching_ = client_.start(client_.domain().attach(client_.placeOf(client_.options().service), deadline), [](const auto&) {});
}

}  // namespace hmxgateway
