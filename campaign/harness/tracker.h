// A consumer of one service: records when the service appears and disappears, and sends a request each time it appears.
#pragma once

#include <memory>
#include <string>

#include "harness/scope.h"
#include "kelo/runtime/kelo_runtime.h"
#include "support/eventually.h"

namespace campaign {

// It has a runtime of its own, as in another process. Thread: any.
class Tracker final : public kelo::runtime::IKeloRuntime::IKeloServiceTracker,
                      public kelo::runtime::IKeloRuntime::IKeloServiceResolver {
public:
    struct Books {
        bool isAlive = false;
        pid_t pid = 0;
        unsigned added = 0;
        unsigned removed = 0;
        unsigned outOfTurn = 0;  // added while alive, or removed while not
        unsigned resolved = 0;
        unsigned gone = 0;
        unsigned answered = 0;  // of its requests: answered
        unsigned refused = 0;   // ended as "not sent"
        unsigned lost = 0;      // ended with 503 because a connection ended
        Clock::time_point aliveAt;
    };

    Tracker(const std::string& directory, const std::string& servicePath);
    ~Tracker() override { runtime_->stop(); }

    testing_support::Watched<Books> books;

    void added(const kelo::runtime::KeloServiceTrackerInfo& info) override;
    void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
    void removed() override;
    void resolved(std::uint64_t handle, kelo::IKeloApi* api) override;
    void gone() override;

private:
    std::unique_ptr<kelo::runtime::IKeloRuntime> runtime_;
    std::uint64_t resolver_ = 0;
};

}  // namespace campaign
