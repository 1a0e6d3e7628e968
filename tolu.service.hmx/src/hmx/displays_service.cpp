#include "hmx/displays_service.h"

namespace kelo::hmx {

namespace {

const tracing::Channel channel{"KELO_HMX_DISPLAYSSERVICE"};

constexpr auto table = routeTable(route<RetrieveDisplayObjectResponseHandler, &IDisplays::retrieveDisplayObject>(
                                      commands::retrieve, DisplayObject::elementPattern),
                                  route<RetrieveDisplayObjectsResponseHandler, &IDisplays::retrieveDisplayObjects>(
                                      commands::retrieve, DisplayObject::resourcePath));

}  // namespace

DisplaysService::DisplaysService(IDisplays* impl) : ResourceService{"DisplaysService", impl, table, channel} {}

std::span<const Route> DisplaysService::routes() noexcept {
    return table.routes;
}

}  // namespace kelo::hmx
