// What the gateway owes to its supervisor: to say when it can be reached and how it is, and to show that it lives.
#pragma once

#include <string>

#include "event_loop.h"
#include "hmx/client/client.h"
#include "kelo/supervisor/notifier.h"
#include "kelo/supervisor/watchdog.h"

namespace hmxgateway {

// A resource; without a supervisor it does nothing. Thread: the loop's.
class Supervision {
public:
    // Both outlive it.
    Supervision(EventLoop& loop, hmx::client::Client& client);
    // Says that the gateway ends.
    ~Supervision();
    Supervision(const Supervision&) = delete;
    Supervision& operator=(const Supervision&) = delete;

    // After each turn of the loop: says that the gateway can be reached, and from then on when the bridge has come or gone.
    void turn();

private:
    void search();

    hmx::client::Client& client_;
    kelo::supervisor::Notifier notifier_;
    kelo::supervisor::Watchdog watchdog_;
    Timer signs_;
    Timer again_;  // to tell what could not be told
    Timer search_;
    hmx::client::Operation attaching_;
    std::string told_;
};

}  // namespace hmxgateway
