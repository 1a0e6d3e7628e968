#include "hmx/displaymanager/displays_client.h"

#include "hmx/displaymanager/service_path.h"

namespace kelo::hmx::displaymanager {

DisplaysClient::DisplaysClient(IKeloApi* api, const std::string& mimeType) : stub_{api, servicePath, mimeType} {}

void* DisplaysClient::getDisplays(std::unique_ptr<IResponseHandler<DisplaysInfo>>&& handler) {
    return stub_.request({"retrieve", "/displays", "DisplaysInfo"}, std::move(handler), {});
}

void* DisplaysClient::getDisplay(std::unique_ptr<IResponseHandler<Display>>&& handler, const std::string& displayId) {
    return stub_.request({"retrieve", "/displays/*", "Display"}, std::move(handler), {displayId});
}

void* DisplaysClient::updateDisplay(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& displayId,
                                    const DisplayUpdate& update) {
    return stub_.request({"update", "/displays/*"}, std::move(handler), {displayId}, update);
}

}  // namespace kelo::hmx::displaymanager
