// Client stub: asks the display manager about displayables.
#pragma once

#include "core/client_stub.h"
#include "hmx/displaymanager/idisplayables.h"

namespace kelo::hmx::displaymanager {

// Thread: any.
class DisplayablesClient final : public IDisplayables {
public:
    // `api` is not owned and must outlive the client. `mimeType`: for the bodies that are sent and the answers that are wanted.
    DisplayablesClient(IKeloApi* api, const std::string& mimeType);
    void* getDisplayables(std::unique_ptr<IResponseHandler<DisplayablesInfo>>&& handler) override;
    void* getDisplayable(std::unique_ptr<IResponseHandler<Displayable>>&& handler, int displayableId) override;
    void* updateDisplayable(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, int displayableId,
                            const DisplayableUpdate& update) override;

private:
    ClientStub stub_;
};

}  // namespace kelo::hmx::displaymanager
