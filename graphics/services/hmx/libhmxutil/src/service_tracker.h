// Ties one service path to the runtime's registry, for a client of the service or for its provider.
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

// Where start-up and the coming and going of services are told.
extern tracing::Channel BENCH_Startup;

// What it takes to talk to an upstream service: who provides it, and its API, which belongs to the runtime. Thread: any (a
// value).
struct ServiceApi {
    kelo::runtime::KeloServiceTrackerInfo info;
    kelo::IKeloApi* api = nullptr;
};

// Enqueues a task when something comes to life and another when it dies. Thread: any.
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

// A resource: one per service path, and a client's (setTasks, getService, ungetService) or a provider's (registerResource,
// registerService, unRegisterService). Its own callbacks run on the runtime's threads and leave no more there than a task in the
// worker's queue. Destroying it neither untracks nor unregisters: the runtime must be done with it, or never call it again.
// Thread: the operations and accessors any, the tasks are set before tracking begins.
class ServiceManager {
public:
    // `runtime` is not owned and outlives the manager. The worker runs the tasks and reads the service's connection.
    ServiceManager(kelo::runtime::IKeloRuntime* runtime, std::shared_ptr<comm::ActiveObject> activeObject, std::string path);
    virtual ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // What is enqueued whenever the service's API is there, and whenever the service goes; the latter may come twice for one
    // loss.
    virtual void setTasks(util::SharedPtr<comm::ActiveObjectEvent> aliveTask, util::SharedPtr<comm::ActiveObjectEvent> deadTask);
    // Begins to track the service, there or not, and resolves it when it comes. Always true.
    virtual bool getService();
    // Closes the resolver: the API is gone when this returns. Always true.
    virtual bool ungetService();

    // Adds a handler, which outlives the registration, below a root path of the service. True, or the process aborts: a root path
    // that is taken or is none is a fault of the program.
    virtual bool registerResource(const std::string& rootPath, kelo::IResourceHandler* handler);
    // Publishes what was added; `task` is enqueued when clients can reach it.
    virtual void registerService(util::SharedPtr<comm::ActiveObjectEvent> task);
    // Always true.
    virtual bool unRegisterService();

    // What the registry tells, on a runtime's thread.
    virtual void serviceAvailable(const kelo::runtime::KeloServiceTrackerInfo& info);
    virtual void serviceRemoved();
    virtual void serviceModified(const kelo::runtime::KeloServiceTrackerInfo& info);
    virtual void serviceResolved();
    virtual void serviceGone();

    // Null while the service is not resolved.
    [[nodiscard]] kelo::IKeloApi* getApi() const noexcept { return resolver_.api(); }
    // What was last heard of the service; empty before it was seen first.
    [[nodiscard]] kelo::runtime::KeloServiceTrackerInfo getServiceInfo() const;

private:
    // Keeps what the registry last said about the service. Thread: any; written on a runtime's thread.
    class ServiceTracker final : public kelo::runtime::IKeloRuntime::IKeloServiceTracker {
    public:
        explicit ServiceTracker(ServiceManager* owner) : owner_{owner} {}
        void added(const kelo::runtime::KeloServiceTrackerInfo& info) override;
        void modified(const kelo::runtime::KeloServiceTrackerInfo& info) override;
        void removed() override;

        // A copy; null before the first.
        [[nodiscard]] std::unique_ptr<kelo::runtime::KeloServiceTrackerInfo> info() const;

    private:
        void keep(const kelo::runtime::KeloServiceTrackerInfo& info);

        ServiceManager* owner_;
        std::unique_ptr<kelo::runtime::KeloServiceTrackerInfo> info_;
        mutable std::mutex mutex_;  // guards info_
    };

    // Keeps the resolved API. Thread: any; written on a runtime's thread.
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
