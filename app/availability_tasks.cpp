// An upstream service may come and go any number of times, and with it the API that the bridges send through. Both tasks run on
// the worker of the service's manager. The bridges use the same worker, so the tasks cannot race with them.
//
// The dead task may run twice for one loss: once when the service disappears from the registry, and once when its connection
// ends. The second time it finds nothing to detach. The tasks do nothing about requests that are in flight upstream: the API ends
// each of them.
#include "availability_tasks.h"

#include <exception>
#include <new>

#include "bridge/display_bridge.h"
#include "bridge/displayable_bridge.h"
#include "bridge/input_bridge.h"
#include "bridge/layers_bridge.h"
#include "bridge/popup_bridge.h"
#include "kelo/std/global_error_handler.h"
#include "tracing/channel.h"

namespace hmx {

namespace {

constexpr int progress = 2;
constexpr int failure = 4;

// Runs a task's body; no exception escapes. `task`: "aliveTask" or "deadTask".
template <class Body>
void guarded(const char* task, const char* service, Body&& body) {
    try {
        body();
    } catch (const std::exception& exception) {
        tracing::logCV(BENCH_Startup, failure, "HMX_STARTUP hmxtolubridge:main %s %s caught exception: %s ", task, service,
                       exception.what());
        // Continuing would leave the bridges without a service that is there: the task would not be run again.
        if (dynamic_cast<const std::bad_alloc*>(&exception) != nullptr) {
            std::GlobalErrorHandler::doAbort("availability_tasks", task, exception.what());
        }
    } catch (...) {
        tracing::logCV(BENCH_Startup, failure, "HMX_STARTUP hmxtolubridge:main %s %s unknown exception occured", task, service);
    }
}

}  // namespace

void trackService(ServiceManager& manager, const UpstreamService& service, std::function<void(const ServiceApi&)> attach,
                  std::function<void()> detach, CEventQueue<EEventID>& queue) {
    auto alive = [&manager, service, attach = std::move(attach), &queue] {
        guarded("aliveTask", service.name, [&] {
            kelo::IKeloApi* const api = manager.getApi();
            if (api == nullptr) {
                tracing::logC(BENCH_Startup, failure, service.noValidApi);
                return;
            }
            tracing::logC(BENCH_Startup, progress, service.gotApi);
            attach(ServiceApi{manager.getServiceInfo(), api});
            queue.post(CEvent{.id = service.event});
        });
    };
    auto dead = [service, detach = std::move(detach)] { guarded("deadTask", service.name, detach); };
    manager.setTasks(makeTask(std::move(alive)), makeTask(std::move(dead)));
    manager.getService();
}

void trackDMService(ServiceManager& manager, DisplayBridge& displayBridge, DisplayableBridge& displayableBridge,
                    LayersBridge& layersBridge, CEventQueue<EEventID>& queue) {
    trackService(
        manager,
        {.name = "DM",
         .noValidApi = "HMX_STARTUP hmxtolubridge: dm service resolved, but no valid api available",
         .gotApi = "HMX_STARTUP hmxtolubridge: got dm api",
         .event = EVENT_DM_AVAILABLE},
        [&](const ServiceApi& api) {
            displayBridge.setApi(api);
            displayableBridge.setApi(api);
            layersBridge.setApi(api);
        },
        [&] {
            tracing::logC(BENCH_Startup, progress, "HMX_STARTUP hmxtolubridge: dm api removed");
            displayBridge.resetApi();
            displayableBridge.resetApi();
            layersBridge.resetApi();
        },
        queue);
}

void trackInputService(ServiceManager& manager, InputBridge& inputBridge, CEventQueue<EEventID>& queue) {
    trackService(
        manager,
        {.name = "input",
         .noValidApi = "HMX_STARTUP hmxtolubridge: inputmanager rsi service resolved, but no valid api available",
         .gotApi = "HMX_STARTUP hmxtolubridge: got input api",
         .event = EVENT_INPUT_AVAILABLE},
        [&](const ServiceApi& api) { inputBridge.setApi(api); },
        [&] {
            inputBridge.resetApi();
            tracing::logC(BENCH_Startup, progress, "HMX_STARTUP hmxtolubridge: input api removed");
        },
        queue);
}

void trackPopupService(ServiceManager& manager, PopupBridge& popupBridge, CEventQueue<EEventID>& queue) {
    trackService(
        manager,
        {.name = "popup",
         .noValidApi = "HMX_STARTUP hmxtolubridge: popup rsi service resolved, but no valid api available",
         .gotApi = "HMX_STARTUP hmxtolubridge: got popup api",
         .event = EVENT_POPUP_AVAILABLE},
        [&](const ServiceApi& api) { popupBridge.setApi(api); },
        [&] {
            popupBridge.resetApi();
            tracing::logC(BENCH_Startup, progress, "HMX_STARTUP hmxtolubridge: popup api removed");
        },
        queue);
}

}  // namespace hmx
