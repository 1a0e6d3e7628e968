// A client's manager tracks its path as long as the process runs. When the service first appears, the manager opens a resolver.
// That resolver stays open and reports every later incarnation, so a service that restarts needs no second one. A provider's
// manager publishes its composed service; the same tracker reports its own registration.
//
//   added ──▶ (first time) open resolver          resolved ──▶ aliveTask          gone ──▶ release, deadTask
//         └─▶ availableTask                                                     removed ──▶ deadTask
//
// Threads. The runtime calls tracker and resolver on its own threads, possibly before the call that created the handle has
// returned. The worker reads info and API in its tasks. Main creates and removes handles. So every member that more than one of
// them uses is atomic or, like the info, guarded by the tracker's lock; no lock is held during a callback. Tasks run one after
// another on the worker, and use the API as it is then, not as it was when they were queued.
#include "service_tracker.h"

#include <utility>

#include "kelo/std/error_storage.h"
#include "kelo/std/global_error_handler.h"

namespace hmx {

using kelo::runtime::IKeloRuntime;
using kelo::runtime::KeloServiceTrackerInfo;
using Task = util::SharedPtr<comm::ActiveObjectEvent>;

tracing::Channel BENCH_Startup{"BENCH_Startup"};

namespace {

constexpr int level = 2;

[[noreturn]] void abortIn(const char* function, const char* message) {
    std::GlobalErrorHandler::doAbort("service_tracker", function, message);
}

}  // namespace

LifecycleListenerASI::LifecycleListenerASI(std::shared_ptr<comm::ActiveObject> activeObject, Task aliveTask, Task deadTask)
    : activeObject_{std::move(activeObject)}, aliveTask_{std::move(aliveTask)}, deadTask_{std::move(deadTask)} {}

void LifecycleListenerASI::alive() {
    activeObject_->enque(aliveTask_);
}

void LifecycleListenerASI::dead() {
    activeObject_->enque(deadTask_);
}

void ServiceManager::ServiceTracker::keep(const KeloServiceTrackerInfo& info) {
    auto fresh = std::make_unique<KeloServiceTrackerInfo>(info);
    const std::lock_guard lock{mutex_};
    info_.swap(fresh);
}

std::unique_ptr<KeloServiceTrackerInfo> ServiceManager::ServiceTracker::info() const {
    const std::lock_guard lock{mutex_};
    return info_ ? std::make_unique<KeloServiceTrackerInfo>(*info_) : nullptr;
}

void ServiceManager::ServiceTracker::added(const KeloServiceTrackerInfo& info) {
    keep(info);
    owner_->serviceAvailable(info);
}

void ServiceManager::ServiceTracker::modified(const KeloServiceTrackerInfo& info) {
    keep(info);
    owner_->serviceModified(info);
}

void ServiceManager::ServiceTracker::removed() {
    owner_->serviceRemoved();
}

void ServiceManager::ServiceResolver::resolved(std::uint64_t, kelo::IKeloApi* api) {
    api_ = api;
    owner_->serviceResolved();
}

void ServiceManager::ServiceResolver::gone() {
    api_ = nullptr;
    owner_->serviceGone();
}

ServiceManager::ServiceManager(IKeloRuntime* runtime, std::shared_ptr<comm::ActiveObject> activeObject, std::string path)
    : activeObject_{std::move(activeObject)},
      runtime_{runtime},
      trackerHandle_{IKeloRuntime::UNDEFINED_TRACKER_HANDLE},
      resolverHandle_{IKeloRuntime::UNDEFINED_RESOLVER_HANDLE},
      resolver_{this},
      tracker_{this},
      path_{std::move(path)},
      firstConnect_{false},
      tracking_{false} {}

ServiceManager::~ServiceManager() = default;

void ServiceManager::setTasks(Task aliveTask, Task deadTask) {
    aliveTask_ = std::move(aliveTask);
    deadTask_ = std::move(deadTask);
}

bool ServiceManager::getService() {
    tracing::logCV(BENCH_Startup, level,
                   "ServiceManager::getService start the service tracker and retrieve service with path: %s", path_.c_str());
    firstConnect_ = true;
    tracking_ = true;
    trackerHandle_ = runtime_->trackService(path_, tracker_, 0);
    return true;
}

bool ServiceManager::ungetService() {
    tracing::logCV(BENCH_Startup, level,
                   "ServiceManager::ungetService closing and untracking tracker for service with path: %s started",
                   path_.c_str());
    runtime_->closeResolver(resolverHandle_.exchange(IKeloRuntime::UNDEFINED_RESOLVER_HANDLE));
    resolver_.forget();  // the API ended with the handle
    return true;
}

bool ServiceManager::registerResource(const std::string& rootPath, kelo::IResourceHandler* handler) {
    tracing::logCV(BENCH_Startup, level, "ServiceManager::registerResource with rootPath: %s started", rootPath.c_str());
    if (composedService_.registerService(rootPath, handler) != 0) {
        const std::string message =
            "ServiceManager::registerResource can't register resource, reason=" + std::ErrorStorage::reason();
        abortIn("registerResource", message.c_str());
    }
    return true;
}

void ServiceManager::registerService(Task task) {
    availableTask_ = std::move(task);
    trackerHandle_ = runtime_->registerService(path_, composedService_, &tracker_);
    tracing::logCV(BENCH_Startup, level, "Service registerService with path: %s finished", path_.c_str());
}

bool ServiceManager::unRegisterService() {
    const std::uint64_t handle = trackerHandle_.exchange(IKeloRuntime::UNDEFINED_TRACKER_HANDLE);
    if (handle == IKeloRuntime::UNDEFINED_TRACKER_HANDLE) {
        tracing::logCV(BENCH_Startup, level, "ServiceManager::unRegisterService no tracker handle for service with path: %s",
                       path_.c_str());
        return true;
    }
    tracing::logCV(BENCH_Startup, level, "ServiceManager::unRegisterService unregisterService with path: %s started",
                   path_.c_str());
    runtime_->unregisterService(handle);
    tracing::logCV(BENCH_Startup, level, "ServiceManager::unRegisterService with path: %s finished", path_.c_str());
    return true;
}

void ServiceManager::serviceAvailable(const KeloServiceTrackerInfo&) {
    if (tracking_) {
        const auto info = tracker_.info();
        if (!info) abortIn("serviceAvailable", "ServiceManager::serviceAvailable we have no valid tracker info received");
        if (firstConnect_.exchange(false)) {
            tracing::logCV(BENCH_Startup, level, "ServiceManager::serviceAvailable open a connection to the service %s",
                           path_.c_str());
            resolverHandle_ = runtime_->openResolver(*info, resolver_, activeObject_.get());
            if (resolverHandle_ == IKeloRuntime::UNDEFINED_RESOLVER_HANDLE) {
                abortIn("serviceAvailable", "ServiceManager::serviceAvailable can't start resolver to my service");
            }
        }
    }
    activeObject_->enque(availableTask_);
}

void ServiceManager::serviceRemoved() {
    activeObject_->enque(deadTask_);
}

void ServiceManager::serviceModified(const KeloServiceTrackerInfo&) {}

void ServiceManager::serviceResolved() {
    if (!tracking_) return;
    if (resolver_.api() == nullptr) abortIn("serviceResolved", "we have no valid API resolved");
    tracing::logCV(BENCH_Startup, level, "ServiceManager::serviceResolved resolved retrieve service with path: %s finished",
                   path_.c_str());
    activeObject_->enque(aliveTask_);
}

void ServiceManager::serviceGone() {
    if (!tracking_) return;
    tracing::logCV(BENCH_Startup, level, "ServiceManager::serviceGone with path: %s finished", path_.c_str());
    runtime_->releaseService(trackerHandle_);
    activeObject_->enque(deadTask_);
}

KeloServiceTrackerInfo ServiceManager::getServiceInfo() const {
    auto info = tracker_.info();
    return info ? std::move(*info) : KeloServiceTrackerInfo{};
}

}  // namespace hmx
