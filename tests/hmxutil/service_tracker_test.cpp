#include "service_tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kelo/func_call_event.h"
#include "kelo/resource_handler.h"
#include "support/fake_kelo_api.h"
#include "support/fake_runtime.h"

namespace {

using kelo::runtime::KeloServiceTrackerInfo;
using support::FakeRuntime;
using testing::ElementsAre;
using testing::IsEmpty;
using Task = util::SharedPtr<comm::ActiveObjectEvent>;

KeloServiceTrackerInfo sighting(std::uint64_t incarnation) {
    KeloServiceTrackerInfo info;
    info.servicePath = "/up";
    info.mimeTypes = {"application/vnd.msgpack"};
    info.incarnation = incarnation;
    return info;
}

class ServiceManager : public testing::Test {
protected:
    ServiceManager() {
        hmx::BENCH_Startup.setThreshold(2);
        tracing::setSink(
            [](const char* channel, int level, const char* text, void* context) {
                if (std::string{channel} == "BENCH_Startup") {
                    static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(level) + " " + text);
                }
            },
            &lines);
    }
    ~ServiceManager() override { tracing::setSink(nullptr, nullptr); }

    Task task(const std::string& name) {
        auto run = [this, name] { ran.push_back(name); };
        return std::make_shared<kelo::FuncCallEvent<decltype(run)>>(run);
    }
    // The calls to the runtime, and the tasks that the worker ran, since the last call.
    std::vector<std::string> calls() { return std::exchange(runtime.calls, {}); }
    std::vector<std::string> tasks() {
        EXPECT_THAT(ran, IsEmpty()) << "a task ran before its turn";
        worker->runPending();
        return std::exchange(ran, {});
    }

    std::vector<std::string> lines, ran;
    FakeRuntime runtime;
    support::FakeKeloApi api;
    std::shared_ptr<comm::ActiveObject> worker = std::make_shared<comm::ActiveObject>("worker", comm::ActiveObject::ByHand{});
    hmx::ServiceManager manager{&runtime, worker, "/up"};
};

TEST_F(ServiceManager, FollowsAServiceThroughItsIncarnations) {
    manager.setTasks(task("alive"), task("dead"));
    EXPECT_TRUE(manager.getService());
    EXPECT_THAT(calls(), ElementsAre("track /up 0"));
    EXPECT_EQ(manager.getApi(), nullptr);
    EXPECT_EQ(manager.getServiceInfo().incarnation, 0U);

    runtime.tracker->added(sighting(1));
    EXPECT_THAT(calls(), ElementsAre("resolve /up 1"));
    EXPECT_EQ(runtime.reader, worker.get());
    EXPECT_THAT(tasks(), IsEmpty());
    runtime.resolver->resolved(FakeRuntime::resolveHandle, &api);
    EXPECT_THAT(tasks(), ElementsAre("alive"));
    EXPECT_EQ(manager.getApi(), &api);
    EXPECT_THAT(manager.getServiceInfo().mimeTypes, ElementsAre("application/vnd.msgpack"));

    runtime.resolver->gone();
    EXPECT_EQ(manager.getApi(), nullptr);
    EXPECT_THAT(calls(), ElementsAre("release 11"));
    runtime.tracker->removed();
    EXPECT_THAT(tasks(), ElementsAre("dead", "dead"));

    runtime.tracker->added(sighting(2));
    runtime.resolver->resolved(FakeRuntime::resolveHandle, &api);
    runtime.tracker->modified(sighting(3));
    EXPECT_THAT(calls(), IsEmpty()) << "the resolver that is open resolves the next incarnation too";
    EXPECT_THAT(tasks(), ElementsAre("alive"));
    EXPECT_EQ(manager.getServiceInfo().incarnation, 3U);

    EXPECT_TRUE(manager.ungetService());
    EXPECT_THAT(calls(), ElementsAre("close 22"));
    EXPECT_EQ(manager.getApi(), nullptr);
    EXPECT_THAT(lines,
                ElementsAre("2 ServiceManager::getService start the service tracker and retrieve service with path: /up",
                            "2 ServiceManager::serviceAvailable open a connection to the service /up",
                            "2 ServiceManager::serviceResolved resolved retrieve service with path: /up finished",
                            "2 ServiceManager::serviceGone with path: /up finished",
                            "2 ServiceManager::serviceResolved resolved retrieve service with path: /up finished",
                            "2 ServiceManager::ungetService closing and untracking tracker for service with path: /up started"));
}

class NoHandler final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request&, std::unique_ptr<kelo::IResponder>, const std::string&) override { return nullptr; }
    void cancelRequest(void*) override {}
};

TEST_F(ServiceManager, PublishesWhatWasRegistered) {
    NoHandler displays;
    EXPECT_TRUE(manager.unRegisterService());
    EXPECT_TRUE(manager.registerResource("/displays", &displays));
    manager.registerService(task("available"));
    ASSERT_NE(runtime.service, nullptr);
    EXPECT_EQ(runtime.service->find("/displays/1"), &displays);
    EXPECT_THAT(tasks(), IsEmpty());
    runtime.tracker->added(sighting(1));
    EXPECT_THAT(tasks(), ElementsAre("available"));
    runtime.tracker->removed();  // there is no dead task
    manager.serviceGone();       // and nothing is tracked
    EXPECT_THAT(tasks(), IsEmpty());
    EXPECT_TRUE(manager.unRegisterService());
    EXPECT_TRUE(manager.unRegisterService());
    EXPECT_THAT(calls(), ElementsAre("register /up", "unregister 33"));
    EXPECT_THAT(lines, ElementsAre("2 ServiceManager::unRegisterService no tracker handle for service with path: /up",
                                   "2 ServiceManager::registerResource with rootPath: /displays started",
                                   "2 Service registerService with path: /up finished",
                                   "2 ServiceManager::unRegisterService unregisterService with path: /up started",
                                   "2 ServiceManager::unRegisterService with path: /up finished",
                                   "2 ServiceManager::unRegisterService no tracker handle for service with path: /up"));
}

TEST_F(ServiceManager, AbortsWhereItCannotGoOn) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    NoHandler handler;
    manager.registerResource("/taken", &handler);
    EXPECT_DEATH(manager.registerResource("/taken", &handler),
                 "service_tracker:registerResource: ServiceManager::registerResource can't register resource, reason=.+");
    manager.getService();
    EXPECT_DEATH(manager.serviceAvailable(sighting(1)),
                 "service_tracker:serviceAvailable: ServiceManager::serviceAvailable we have no valid tracker info received");
    runtime.refuseResolver = true;
    EXPECT_DEATH(runtime.tracker->added(sighting(1)),
                 "service_tracker:serviceAvailable: ServiceManager::serviceAvailable can't start resolver to my service");
    runtime.refuseResolver = false;
    runtime.tracker->added(sighting(1));
    EXPECT_DEATH(runtime.resolver->resolved(FakeRuntime::resolveHandle, nullptr),
                 "service_tracker:serviceResolved: we have no valid API resolved");
}

// The runtime writes on its thread what the worker reads on its own.
TEST_F(ServiceManager, InfoAndApiAreReadWhileTheyChange) {
    constexpr std::uint64_t last = 2000;
    hmx::BENCH_Startup.setThreshold(9);
    manager.getService();
    runtime.tracker->added(sighting(1));
    std::atomic<bool> done = false;
    std::thread teller{[&] {
        for (std::uint64_t incarnation = 2; incarnation <= last; ++incarnation) {
            runtime.resolver->resolved(FakeRuntime::resolveHandle, &api);
            runtime.resolver->gone();
            runtime.calls.clear();
            runtime.tracker->added(sighting(incarnation));
        }
        done = true;
    }};
    std::uint64_t seen = 0;
    do {
        const KeloServiceTrackerInfo info = manager.getServiceInfo();
        EXPECT_GE(info.incarnation, seen);
        EXPECT_EQ(info.servicePath, "/up");
        seen = info.incarnation;
        const kelo::IKeloApi* resolved = manager.getApi();
        EXPECT_TRUE(resolved == nullptr || resolved == &api);
    } while (!done);
    teller.join();
    EXPECT_EQ(manager.getServiceInfo().incarnation, last);
}

TEST_F(ServiceManager, ALifecycleListenerEnqueuesItsTasks) {
    hmx::LifecycleListenerASI listener{worker, task("alive"), task("dead")};
    listener.alive();
    listener.dead();
    listener.alive();
    EXPECT_THAT(tasks(), ElementsAre("alive", "dead", "alive"));
}

}  // namespace
