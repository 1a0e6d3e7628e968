// What a process owes to its supervisor: to obey its signals, to show that it lives, and to report its state.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kelo/supervisor/notifier.h"
#include "kelo/supervisor/watchdog.h"
#include "net/loop.h"

namespace kelo::runtime {

// A resource. Thread: the runtime's loop.
class Supervision {
public:
    struct Duties {
        std::function<void()> reload;  // SIGHUP
        std::function<void()> end;     // SIGTERM; does not return
    };

    Supervision(net::Loop& loop, Duties duties);
    ~Supervision();
    Supervision(const Supervision&) = delete;
    Supervision& operator=(const Supervision&) = delete;

    // The process's state in words. `isReady`: it can do its work; only the first time is reported.
    void report(std::string state, bool isReady);
    // The process is about to end.
    void reportEnd();

private:
    class Signals;

    void tell();

    net::Loop& loop_;
    supervisor::Notifier notifier_;
    supervisor::Watchdog watchdog_;
    std::shared_ptr<Signals> signals_;
    net::Timer watchdogTurn_;
    net::Timer again_;  // to tell what could not be told
    std::string state_;
    bool isReady_ = false;
    bool isReadyTold_ = false;
};

}  // namespace kelo::runtime
