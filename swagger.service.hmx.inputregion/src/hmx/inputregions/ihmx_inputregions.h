// The input manager's requests.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "hmx/inputregions/force_info.h"
#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "hmx/inputregions/haptic_and_input_info_sorted.h"
#include "hmx/inputregions/haptic_trigger.h"
#include "hmx/inputregions/shutter_info.h"
#include "kelo/response_handler.h"

namespace kelo::hmx::inputregions {

// Each operation sends one request and returns its handle, for IKeloApi::cancel. The handler gets the answers on the thread that
// reads the service's connection. UNDEFINED_REQUEST_HANDLE: nothing was sent, and the handler has already got an error. Thread:
// any.
class IHmx_inputregions {
public:
    virtual ~IHmx_inputregions() = default;
    virtual void* getActiveProximity(std::unique_ptr<IResponseHandler<bool>>&& handler, const std::string& display) = 0;
    virtual void* getActiveShutter(std::unique_ptr<IResponseHandler<ShutterInfo>>&& handler, const std::string& display) = 0;
    virtual void* getActiveForce(std::unique_ptr<IResponseHandler<ForceInfo>>&& handler, const std::string& display) = 0;
    virtual void* getInputRegionsForDisplay(std::unique_ptr<IResponseHandler<HapticAndInputInfoSorted>>&& handler,
                                            const std::string& display) = 0;
    virtual void* getInputRegionsForHMI(std::unique_ptr<IResponseHandler<HapticAndInputInfoSorted>>&& handler,
                                        const std::string& display, const std::string& hmi) = 0;
    virtual void* setPower(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display, bool on) = 0;
    virtual void* setProximityActive(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                                     bool active) = 0;
    virtual void* setShutterActive(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                                   bool active) = 0;
    virtual void* triggerHapticFeedback(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                                        const HapticTrigger& trigger) = 0;
    // Replaces the regions that the HMI, or the subcomponent of it that `info` names, has on the display.
    virtual void* updateInputRegions(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                                     const std::string& hmi, const HapticAndInputInfoPerHMI& info) = 0;
};

}  // namespace kelo::hmx::inputregions
