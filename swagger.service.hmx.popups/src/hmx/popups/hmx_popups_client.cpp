#include "hmx/popups/hmx_popups_client.h"

#include "hmx/popups/service_path.h"

namespace kelo::hmx::popups {

Hmx_popupsClient::Hmx_popupsClient(IKeloApi* api, const std::string& mimeType) : stub_{api, servicePath, mimeType} {}

void* Hmx_popupsClient::getPopups(std::unique_ptr<IResponseHandler<std::vector<Popup>>>&& handler, const std::string& display,
                                  const PopupStateFilter& filter) {
    return stub_.request({"retrieve", "/*", "std::vector<Popup>"}, std::move(handler), {display}, filter);
}

void* Hmx_popupsClient::getPopup(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                                 const std::string& popupName) {
    return stub_.request({"retrieve", "/*/*", "Popup"}, std::move(handler), {display, popupName});
}

void* Hmx_popupsClient::updatePopupState(std::unique_ptr<IResponseHandler<Popup>>&& handler, const std::string& display,
                                         const std::string& popupName, const PopupStateUpdate& update) {
    return stub_.request({"update", "/*/*", "Popup"}, std::move(handler), {display, popupName}, update);
}

}  // namespace kelo::hmx::popups
