// Client stub: asks the display manager about displays.
#pragma once

#include "core/client_stub.h"
#include "hmx/displaymanager/idisplays.h"

namespace kelo::hmx::displaymanager {

// Thread: any.
class DisplaysClient final : public IDisplays {
public:
    // `api` is not owned and must outlive the client. `mimeType`: for the bodies that are sent and the answers that are wanted.
    DisplaysClient(IKeloApi* api, const std::string& mimeType);
    void* getDisplays(std::unique_ptr<IResponseHandler<DisplaysInfo>>&& handler) override;
    void* getDisplay(std::unique_ptr<IResponseHandler<Display>>&& handler, const std::string& displayId) override;
    void* updateDisplay(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& displayId,
                        const DisplayUpdate& update) override;

private:
    ClientStub stub_;
};

}  // namespace kelo::hmx::displaymanager
