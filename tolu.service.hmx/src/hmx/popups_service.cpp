#include "hmx/popups_service.h"

namespace kelo::hmx {

namespace {

const tracing::Channel channel{"KELO_HMX_POPUPSSERVICE"};

constexpr auto table = routeTable(
    route<RetrievePopupObjectResponseHandler, &IPopups::retrievePopupObject>(commands::retrieve, PopupObject::elementPattern),
    route<RetrievePopupObjectsResponseHandler, &IPopups::retrievePopupObjects>(commands::retrieve, PopupObject::resourcePath),
    route<UpdatePopupObjectResponseHandler, &IPopups::updatePopupObject>(commands::update, PopupObject::elementPattern));

}  // namespace

PopupsService::PopupsService(IPopups* impl) : ResourceService{"PopupsService", impl, table, channel} {}

std::span<const Route> PopupsService::routes() noexcept {
    return table.routes;
}

}  // namespace kelo::hmx
