// Connects one service path with the runtime's registry, for a client of the service or for its provider.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "comm/active_object.h"
#include "comm/lifecycle_listener.h"
#include "kelo/composed_service.h"
#include "kelo/runtime/kelo_runtime.h"
#include "tracing/channel.h"
#include "util/shared_ptr.h"

namespace kelo {
class IResourceHandler;
}

namespace hmx {

// The channel for start-up, and for the start and loss of services.
extern tracing::Channel BENCH_Startup;

// An upstream service as needed to talk to it: who provides it, and its API, which the runtime owns. Thread: any (a value).
struct ServiceApi {
    kelo::runtime::KeloServiceTrackerInfo info;
    kelo::IKeloApi* api = nullptr;
};

// Queues one task when something comes to life and another when it dies. Thread: any.
class LifecycleListenerASI : public comm::LifecycleListener {
public:
    LifecycleListenerASI(std::shared_ptr<comm::ActiveObject> activeObject, util::SharedPtr<comm::ActiveObjectEvent> aliveTask,
                         util::SharedPtr<comm::ActiveObjectEvent> deadTask);
    void alive() override;
    void dead() override;

private:
    std::shared_ptr<comm::ActiveObject> activeObject_;
    util::SharedPtr<comm::ActiveObjectEvent> aliveTask_;
    util::SharedPtr<comm::ActiveObjectEvent> deadTask_;
};

// A resource: one for each service path, either for a client (setTasks, getService, ungetService) or for a provider
// (registerResource, registerService, unRegisterService). Its callbacks run on the runtime's threads and only queue a task for
// the worker. Its destructor neither untracks nor unregisters: at that time the runtime must have stopped calling it. Thread: any
// for operations and accessors; the tasks are set before tracking begins.
class ServiceManager {
public:
    // `runtime` is not owned and must outlive the manager. The worker runs the tasks and reads the service's connection.
    ServiceManager(kelo::runtime::IKeloRuntime* runtime, std::shared_ptr<comm::ActiveObject> activeObject, std::string path);
    virtual ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // Sets the tasks that are queued whenever the service's API becomes available, and whenever the service is lost. The latter
    // may be queued twice for one loss.
    virtual void setTasks(util::SharedPtr<comm::ActiveObjectEvent> aliveTask, util::SharedPtr<comm::ActiveObjectEvent> deadTask);
    // Starts to track the service, whether or not it exists, and resolves it when it appears. Always true.
    virtual bool getService();
    // Closes the resolver; the API is gone when this returns. Always true.
    virtual bool ungetService();

    // Adds a handler, which must outlive the registration, under a root path of the service. Returns true or aborts the process:
    // a root path that is taken or malformed is a bug in the program.
    virtual bool registerResource(const std::string& rootPath, kelo::IResourceHandler* handler);
    // Publishes what has been added; `task` is queued when clients can reach it.
    virtual void registerService(util::SharedPtr<comm::ActiveObjectEvent> task);
    // Always true.
    virtual bool unRegisterService();

    // Called for the registry's events, on a thread of the runtime.
    virtual void serviceAvailable(const kelo::runtime::KeloServiceTrackerInfo& info);
    virtual void serviceRemoved();
    virtual void serviceModified(const kelo::runtime::KeloServiceTrackerInfo& info);
    virtual void serviceResolved();
    virtual void serviceGone();

    // Null while the service is not resolved.
    [[nodiscard]] kelo::IKeloApi* getApi() const noexcept { return resolver_.api(); }
    // What was last reported about the service; empty if it has not been seen yet.
    [[nodiscard]] kelo::runtime::KeloServiceTrackerInfo getServiceInfo() const;

private:
    // Keeps what the registry last reported about the service. Thread: any; written on a thread of the runtime.
    class ServiceTracker final : public kelo::runtime::IKeloRuntime::IKeloServiceTracker {
    public:
        explicit ServiceTracker(ServiceManager* owner) : owner_{owner} {}
        void added(const kelo::runtime::KeloServiceTrackerInfo& info) override;
        void modified(const kelo::runtime::KeloServiceTrackerInfo& info) override;
        void removed() override;

        // A copy; null before the first report.
        [[nodiscard]] std::unique_ptr<kelo::runtime::KeloServiceTrackerInfo> info() const;

    private:
        void keep(const kelo::runtime::KeloServiceTrackerInfo& info);

        ServiceManager* owner_;
        std::unique_ptr<kelo::runtime::KeloServiceTrackerInfo> info_;
        mutable std::mutex mutex_;  // guards info_
    };

    // Keeps the resolved API. Thread: any; written on a thread of the runtime.
    class ServiceResolver final : public kelo::runtime::IKeloRuntime::IKeloServiceResolver {
    public:
        explicit ServiceResolver(ServiceManager* owner) : owner_{owner} {}
        void resolved(std::uint64_t handle, kelo::IKeloApi* api) override;
        void gone() override;

        [[nodiscard]] kelo::IKeloApi* api() const noexcept { return api_.load(); }
        void forget() noexcept { api_ = nullptr; }

    private:
        ServiceManager* owner_;
        std::atomic<kelo::IKeloApi*> api_ = nullptr;
    };

    std::shared_ptr<comm::ActiveObject> activeObject_;
    util::SharedPtr<comm::ActiveObjectEvent> aliveTask_;
    util::SharedPtr<comm::ActiveObjectEvent> deadTask_;
    util::SharedPtr<comm::ActiveObjectEvent> availableTask_;
    util::SharedPtr<comm::ActiveObjectEvent> spareTask_;
    kelo::runtime::IKeloRuntime* runtime_;
    std::atomic<std::uint64_t> trackerHandle_;
    std::atomic<std::uint64_t> resolverHandle_;
    ServiceResolver resolver_;
    ServiceTracker tracker_;
    std::string path_;
    kelo::SimpleComposedKeloService composedService_;
    std::atomic<bool> firstConnect_;
    std::atomic<bool> tracking_;
};

}  // namespace hmx
