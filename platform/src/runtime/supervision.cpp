// Signals arrive through a descriptor in the runtime's loop, so they are handled between its events, like everything else there.
// Without a supervisor, nothing here ever wakes the loop but a signal.
#include "runtime/supervision.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <csignal>
#include <utility>

#include "kelo/supervisor/signals.h"
#include "net/descriptor.h"
#include "tracing/channel.h"

namespace kelo::runtime {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::chrono::milliseconds untilTellingAgain{100};

sigset_t directingSignals() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    return signals;
}

}  // namespace

class Supervision::Signals final : public net::Pollable {
public:
    explicit Signals(Duties duties) : duties_{std::move(duties)} {
        const sigset_t signals = directingSignals();
        descriptor_ = net::Descriptor{::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK)};
    }

    int descriptor() const noexcept { return descriptor_.get(); }
    void onReady(std::uint32_t /*events*/) override {
        signalfd_siginfo signal{};
        while (::read(descriptor_.get(), &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo == SIGTERM) duties_.end();
            if (signal.ssi_signo == SIGHUP) duties_.reload();
        }
    }

private:
    const Duties duties_;
    net::Descriptor descriptor_;
};

Supervision::Supervision(net::Loop& loop, Duties duties)
    : loop_{loop},
      watchdog_{notifier_},
      signals_{std::make_shared<Signals>(std::move(duties))},
      watchdogTurn_{loop, [this] { watchdogTurn_.arm(watchdog_.turn()); }},
      again_{loop, [this] { tell(); }} {
    if (signals_->descriptor() < 0 || loop.add(signals_->descriptor(), EPOLLIN, signals_) == 0) {
        tracing::logC(channel, 4, "no descriptor is free for signals: they end this process as if it did not know them");
        const sigset_t signals = directingSignals();
        (void)::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
    watchdogTurn_.arm(watchdog_.turn());
}

Supervision::~Supervision() {
    loop_.remove(signals_->descriptor());
}

void Supervision::report(std::string state, bool isReady) {
    isReady_ = isReady_ || isReady;
    if (state == state_ && isReady_ == isReadyTold_) return;
    state_ = std::move(state);
    tell();
}

void Supervision::tell() {
    const bool isNews = isReady_ && !isReadyTold_;
    if (!notifier_.tell((isNews ? "READY=1\nSTATUS=" : "STATUS=") + state_)) {
        again_.arm(net::Clock::now() + untilTellingAgain);
        return;
    }
    isReadyTold_ = isReady_;
    again_.disarm();
}

void Supervision::reportEnd() {
    (void)notifier_.tell("STOPPING=1\nSTATUS=ending");
}

}  // namespace kelo::runtime

namespace kelo::supervisor {

void leaveSignalsToRuntime() noexcept {
    const sigset_t signals = runtime::directingSignals();
    (void)::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace kelo::supervisor
