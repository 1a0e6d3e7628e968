// Attach the bridges to their upstream service when it comes, and detach them when it goes.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "comm/active_object.h"
#include "event_queue.h"
#include "kelo/func_call_event.h"
#include "service_tracker.h"
#include "util/shared_ptr.h"

namespace hmx {

class DisplayBridge;
class DisplayableBridge;
class LayersBridge;
class InputBridge;
class PopupBridge;

// Each of the three hands its manager a task for the coming and one for the going of the service and begins to track it. All that
// is passed by reference outlives the manager's tracking. The manager's worker must be the bridges' own. Thread: main.
void trackDMService(ServiceManager& manager, DisplayBridge& displayBridge, DisplayableBridge& displayableBridge,
                    LayersBridge& layersBridge, CEventQueue<EEventID>& queue);
void trackInputService(ServiceManager& manager, InputBridge& inputBridge, CEventQueue<EEventID>& queue);
void trackPopupService(ServiceManager& manager, PopupBridge& popupBridge, CEventQueue<EEventID>& queue);

// What the three differ in beside their bridges. Refers to literals. Thread: any (a value).
struct UpstreamService {
    const char* name;  // as messages about exceptions have it
    const char* noValidApi;
    const char* gotApi;
    EEventID event;  // posted when the bridges are attached
};

// What the three have in common. `attach` and `detach` run on the manager's worker; what they throw is logged. A throw out of
// `attach` leaves undone what it had not done yet, and posts no event.
void trackService(ServiceManager& manager, const UpstreamService& service, std::function<void(const ServiceApi&)> attach,
                  std::function<void()> detach, CEventQueue<EEventID>& queue);

// An event that may be handed to a worker any number of times. Thread: any.
template <class F>
util::SharedPtr<comm::ActiveObjectEvent> makeTask(F&& function) {
    return std::make_shared<kelo::FuncCallEvent<std::decay_t<F>>>(std::forward<F>(function));
}

}  // namespace hmx
