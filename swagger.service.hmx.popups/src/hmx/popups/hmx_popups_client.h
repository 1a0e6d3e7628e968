// Client stub for the popup manager.
#pragma once

#include "core/client_stub.h"
#include "hmx/popups/ihmx_popups.h"

namespace kelo::hmx::popups {

// Thread: any.
class Hmx_popupsClient final : public IHmx_popups {
public:
    // `api` is not owned and must outlive the client. `mimeType`: for the bodies that are sent and the answers that are wanted.
    Hmx_popupsClient(IKeloApi* api, const std::string& mimeType);
    void* getPopups(std::unique_ptr<IResponseHandler<std::vector<Popup>>>&& handler, const std::string& display,
                    const PopupStateFilter& filter) override;
    void* getPopup(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                   const std::string& popupName) override;
    void* updatePopupState(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                           const std::string& popupName, const PopupStateUpdate& update) override;

private:
    ClientStub stub_;
};

}  // namespace kelo::hmx::popups
