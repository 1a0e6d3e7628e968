// Attaches the bridges to their upstream service when it appears, and detaches them when it is lost.
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

// Each sets its manager's tasks for the start and the loss of the service, and begins to track the service. Everything passed by
// reference must outlive the tracking. The manager's worker must be the bridges' own. Thread: main.
void trackDMService(ServiceManager& manager, DisplayBridge& displayBridge, DisplayableBridge& displayableBridge,
                    LayersBridge& layersBridge, CEventQueue<EEventID>& queue);
void trackInputService(ServiceManager& manager, InputBridge& inputBridge, CEventQueue<EEventID>& queue);
void trackPopupService(ServiceManager& manager, PopupBridge& popupBridge, CEventQueue<EEventID>& queue);

// What differs between the three, apart from their bridges. Refers to literals. Thread: any (a value).
struct UpstreamService {
    const char* name;  // as it appears in messages about exceptions
    const char* noValidApi;
    const char* gotApi;
    EEventID event;  // posted after the bridges have been attached
};

// The common part of the three. `attach` and `detach` run on the manager's worker; their exceptions are logged. If `attach`
// throws, no event is posted.
void trackService(ServiceManager& manager, const UpstreamService& service, std::function<void(const ServiceApi&)> attach,
                  std::function<void()> detach, CEventQueue<EEventID>& queue);

// Makes an event that may be queued any number of times. Thread: any.
template <class F>
util::SharedPtr<comm::ActiveObjectEvent> makeTask(F&& function) {
    return std::make_shared<kelo::FuncCallEvent<std::decay_t<F>>>(std::forward<F>(function));
}

}  // namespace hmx
