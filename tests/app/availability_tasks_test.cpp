#include "availability_tasks.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "bridge/display_bridge.h"
#include "bridge/displayable_bridge.h"
#include "bridge/input_bridge.h"
#include "bridge/layers_bridge.h"
#include "bridge/popup_bridge.h"
#include "support/fake_kelo_api.h"
#include "support/fake_runtime.h"
#include "support/hand_cranked_worker.h"
#include "support/recording_handler.h"
#include "support/traced_lines.h"

namespace {

using Lines = std::vector<std::string>;

// A service that the test starts and ends, its manager, and the bridges that could use it.
class AvailabilityTasks : public testing::Test {
protected:
    void come(kelo::IKeloApi* newApi) {
        kelo::runtime::KeloServiceTrackerInfo info;
        info.mimeTypes = {"application/x-unknown", msgpack, "application/json"};
        if (runtime.resolver == nullptr) runtime.tracker->added(info);
        runtime.resolver->resolved(support::FakeRuntime::resolveHandle, newApi);
    }
    // Both reports of a loss: from the tracker and from the resolver.
    void go() {
        runtime.tracker->removed();
        runtime.resolver->gone();
    }
    // Only the lines of the tasks; the manager's lines have their own tests.
    Lines takeLines() {
        Lines result;
        for (auto& line : lines.take()) {
            if (line.find("ServiceManager::") == std::string::npos) result.push_back(std::move(line));
        }
        return result;
    }
    template <class Result>
    std::unique_ptr<kelo::IResponseHandler<Result>> ignored() {
        static support::Heard<Result> heard;
        return support::record(heard);
    }
    // How many of the five bridges send a request now.
    std::size_t attached() {
        const std::size_t before = api.sent.size();
        displays.retrieveDisplayObjects(ignored<kelo::hmx::DisplayObjectListPage>(), {});
        displayables.retrieveDisplayableObjects(ignored<kelo::hmx::DisplayableObjectListPage>(), {});
        layers.retrieveLayerconfigurationObjects(ignored<kelo::hmx::LayerconfigurationObjectListPage>(), {});
        input.insertRegionconfigurationObject(ignored<kelo::url>(), {});
        kelo::toluglobals::ToluParams ofDriver;
        ofDriver.values.set("display", "Driver_Display");
        popups.retrievePopupObjects(ignored<kelo::hmx::PopupObjectListPage>(), ofDriver);
        worker.crank();
        for (std::size_t i = before; i < api.sent.size(); ++i) {
            EXPECT_EQ(api.sent[i].request.getMimeTypeHeader(), msgpack) << "what the service prefers";
        }
        return api.sent.size() - before;
    }

    static constexpr char msgpack[] = "application/vnd.msgpack";
    support::HandCrankedWorker worker;
    support::FakeKeloApi api;
    support::FakeRuntime runtime;
    support::TracedLines lines{"BENCH_Startup"};
    hmx::CEventQueue<hmx::EEventID> queue;
    hmx::DisplayBridge displays{worker.shared()};
    hmx::DisplayableBridge displayables{worker.shared()};
    hmx::LayersBridge layers{worker.shared()};
    hmx::InputBridge input{worker.shared()};
    hmx::PopupBridge popups{worker.shared()};
    hmx::ServiceManager manager{&runtime, worker.shared(), "/service"};
};

TEST_F(AvailabilityTasks, AttachOnEveryComingAndDetachOnEveryGoing) {
    const struct {
        std::function<void()> track;
        std::size_t bridges;
        hmx::EEventID event;
        std::string gotApi, noApi, removed;
    } services[] = {
        {[&] { hmx::trackDMService(manager, displays, displayables, layers, queue); }, 3, hmx::EVENT_DM_AVAILABLE,
         "2 HMX_STARTUP hmxtolubridge: got dm api",
         "4 HMX_STARTUP hmxtolubridge: dm service resolved, but no valid api available",
         "2 HMX_STARTUP hmxtolubridge: dm api removed"},
        {[&] { hmx::trackInputService(manager, input, queue); }, 1, hmx::EVENT_INPUT_AVAILABLE,
         "2 HMX_STARTUP hmxtolubridge: got input api",
         "4 HMX_STARTUP hmxtolubridge: inputmanager rsi service resolved, but no valid api available",
         "2 HMX_STARTUP hmxtolubridge: input api removed"},
        {[&] { hmx::trackPopupService(manager, popups, queue); }, 1, hmx::EVENT_POPUP_AVAILABLE,
         "2 HMX_STARTUP hmxtolubridge: got popup api",
         "4 HMX_STARTUP hmxtolubridge: popup rsi service resolved, but no valid api available",
         "2 HMX_STARTUP hmxtolubridge: popup api removed"},
    };
    for (const auto& service : services) {
        SCOPED_TRACE(service.gotApi);
        service.track();
        for (int incarnation = 0; incarnation < 2; ++incarnation) {
            come(&api);
            EXPECT_EQ(attached(), service.bridges);
            queue.waitFor(service.event);
            go();
            EXPECT_EQ(attached(), 0U);
            EXPECT_EQ(takeLines(), (Lines{service.gotApi, service.removed, service.removed}));
        }
        // The service is gone again before the worker attaches it.
        come(&api);
        runtime.resolver->gone();
        EXPECT_EQ(attached(), 0U);
        EXPECT_EQ(takeLines(), (Lines{service.noApi, service.removed}));
        EXPECT_EQ(queue.count(), 0U);
    }
}

TEST_F(AvailabilityTasks, NothingThatIsThrownLeavesATask) {
    for (const char* name : {"DM", "input", "popup"}) {
        int thrown = 0;
        const auto fail = [&thrown] {
            if (thrown++ % 2 == 0) throw std::runtime_error{"out of order"};
            throw 7;  // not derived from std::exception
        };
        hmx::trackService(
            manager, {.name = name, .noValidApi = "", .gotApi = "got", .event = hmx::EVENT_DM_AVAILABLE},
            [&](const hmx::ServiceApi&) { fail(); }, fail, queue);
        come(&api);
        come(&api);
        worker.crank();
        go();
        worker.crank();
        const std::string main = std::string{"4 HMX_STARTUP hmxtolubridge:main "};
        EXPECT_EQ(takeLines(), (Lines{"2 got", main + "aliveTask " + name + " caught exception: out of order ", "2 got",
                                      main + "aliveTask " + name + " unknown exception occured",
                                      main + "deadTask " + name + " caught exception: out of order ",
                                      main + "deadTask " + name + " unknown exception occured"}));
        EXPECT_EQ(queue.count(), 0U);
    }
}

}  // namespace
