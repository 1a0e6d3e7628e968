#include "hmx/displaymanager/displayables_client.h"

#include "hmx/displaymanager/service_path.h"
#include "kelo/path.h"

namespace kelo::hmx::displaymanager {

DisplayablesClient::DisplayablesClient(IKeloApi* api, const std::string& mimeType) : stub_{api, servicePath, mimeType} {}

void* DisplayablesClient::getDisplayables(std::unique_ptr<IResponseHandler<DisplayablesInfo>>&& handler) {
    return stub_.request({"retrieve", "/displayables", "DisplayablesInfo"}, std::move(handler), {});
}

void* DisplayablesClient::getDisplayable(std::unique_ptr<IResponseHandler<Displayable>>&& handler, int displayableId) {
    return stub_.request({"retrieve", "/displayables/*", "Displayable"}, std::move(handler), {Path::toString(displayableId)});
}

void* DisplayablesClient::updateDisplayable(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, int displayableId,
                                            const DisplayableUpdate& update) {
    return stub_.request({"update", "/displayables/*"}, std::move(handler), {Path::toString(displayableId)}, update);
}

}  // namespace kelo::hmx::displaymanager
