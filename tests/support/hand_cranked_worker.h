// A bridge's worker that runs only when the test says so.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"

namespace support {

// Fails the test if events are left at its end. Thread: one at a time.
class HandCrankedWorker {
public:
    HandCrankedWorker() = default;
    ~HandCrankedWorker() { EXPECT_EQ(worker_->pending(), 0U) << "events that the test did not run"; }
    HandCrankedWorker(const HandCrankedWorker&) = delete;
    HandCrankedWorker& operator=(const HandCrankedWorker&) = delete;

    const std::shared_ptr<comm::ActiveObject>& shared() const noexcept { return worker_; }

    // Runs what is queued, and what that queues.
    void crank() { worker_->runPending(); }
    // Runs everything that is queued, then `function`, on the worker.
    template <class F>
    void run(F&& function) {
        kelo::post(*worker_, std::forward<F>(function));
        crank();
    }

private:
    std::shared_ptr<comm::ActiveObject> worker_ =
        std::make_shared<comm::ActiveObject>("hand-cranked", comm::ActiveObject::ByHand{});
};

}  // namespace support
