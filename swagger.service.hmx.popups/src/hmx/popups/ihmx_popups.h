// The popup manager's requests.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hmx/popups/popup.h"
#include "hmx/popups/popup_state_filter.h"
#include "hmx/popups/popup_state_update.h"
#include "kelo/response_handler.h"

namespace kelo::hmx::popups {

// Each operation sends one request and returns its handle, for IKeloApi::cancel. The handler gets the answers on the thread that
// reads the service's connection. UNDEFINED_REQUEST_HANDLE: nothing was sent, and the handler has already got an error. Thread:
// any.
class IHmx_popups {
public:
    virtual ~IHmx_popups() = default;
    virtual void* getPopups(std::unique_ptr<IResponseHandler<std::vector<Popup>>>&& handler, const std::string& display,
                            const PopupStateFilter& filter) = 0;
    virtual void* getPopup(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                           const std::string& popupName) = 0;
    // The answer is the popup after the update.
    virtual void* updatePopupState(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                                   const std::string& popupName, const PopupStateUpdate& update) = 0;
};

}  // namespace kelo::hmx::popups
