// The simulator as a process's services: the runtime, the worker, the timers.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "comm/active_object.h"
#include "kelo/runtime/kelo_runtime.h"
#include "replay.h"
#include "simulator.h"
#include "timers.h"

namespace hmxsim {

struct ServerOptions {
    World world;
    Plan scenario;
    std::vector<ManagerId> managers;
    std::uint64_t seed = 1;
    std::string recordFile;  // "" for none
    std::optional<ReplayPlan> replay;
    kelo::runtime::RuntimeOptions runtime;
    std::function<void()> onServing;  // called once, on the runtime's thread, when all services are published for the first time
};

// Serves from `start` until it is destroyed. Thread: main, but for what Host declares.
class Server final : private Host {
public:
    explicit Server(ServerOptions options);
    ~Server() override;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // "" on success, else why not.
    std::string start();

private:
    // One service path, and what is published there.
    struct Publication final : kelo::runtime::IKeloRuntime::IKeloServiceTracker {
        void added(const kelo::runtime::KeloServiceTrackerInfo&) override { server->published(*this); }
        void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
        void removed() override {}

        Server* server = nullptr;
        std::string path;
        Service* service = nullptr;
        kelo::SimpleComposedKeloService composed;
        std::uint64_t handle = 0;   // 0 while nothing is to be published
        bool wasPublished = false;  // the runtime's thread's
        bool isAway = false;        // at the start
    };

    void prepareReplay();
    void publish(Publication& publication);
    void unpublish(Publication& publication);
    void published(Publication& publication);
    void close(std::string_view service, std::chrono::milliseconds reopenAfter) override;
    [[noreturn]] void crash() override;
    void runOnWorker(const std::function<void()>& task);  // returns when it has run

    ServerOptions options_;
    RequestLog log_;
    std::unique_ptr<kelo::runtime::IKeloRuntime> runtime_;
    std::array<Publication, allManagers.size() + 1> publications_;  // the worker's, as is the next
    std::size_t used_ = 0;                                          // of them
    std::size_t awaited_ = 0;                                       // of these, at the start
    std::size_t published_ = 0;                                     // of these, at least once; the runtime's thread's
    bool isEnding_ = false;
    bool isPaused_ = false;
    Simulator simulator_;
    std::unique_ptr<Replay> replay_;
    SteadyTimers timers_;
    comm::ActiveObject worker_;  // last, so that what it still runs finds all else
};

}  // namespace hmxsim
