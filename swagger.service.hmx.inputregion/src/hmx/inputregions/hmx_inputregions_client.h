// Client stub for the input manager.
#pragma once

#include "core/client_stub.h"
#include "hmx/inputregions/ihmx_inputregions.h"

namespace kelo::hmx::inputregions {

// Thread: any.
class Hmx_inputregionsClient final : public IHmx_inputregions {
public:
    // `api` is not owned and must outlive the client. `mimeType`: for the bodies that are sent and the answers that are wanted.
    Hmx_inputregionsClient(IKeloApi* api, const std::string& mimeType);
    void* getActiveProximity(std::unique_ptr<IResponseHandler<bool>>&& handler, const std::string& display) override;
    void* getActiveShutter(std::unique_ptr<IResponseHandler<ShutterInfo>>&& handler, const std::string& display) override;
    void* getActiveForce(std::unique_ptr<IResponseHandler<ForceInfo>>&& handler, const std::string& display) override;
    void* getInputRegionsForDisplay(std::unique_ptr<IResponseHandler<HapticAndInputInfoSorted>>&& handler,
                                    const std::string& display) override;
    void* getInputRegionsForHMI(std::unique_ptr<IResponseHandler<HapticAndInputInfoSorted>>&& handler, const std::string& display,
                                const std::string& hmi) override;
    void* setPower(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display, bool on) override;
    void* setProximityActive(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                             bool active) override;
    void* setShutterActive(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                           bool active) override;
    void* triggerHapticFeedback(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                                const HapticTrigger& trigger) override;
    void* updateInputRegions(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& display,
                             const std::string& hmi, const HapticAndInputInfoPerHMI& info) override;

private:
    ClientStub stub_;
};

}  // namespace kelo::hmx::inputregions
