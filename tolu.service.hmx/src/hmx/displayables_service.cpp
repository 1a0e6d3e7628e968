#include "hmx/displayables_service.h"

namespace kelo::hmx {

namespace {

const tracing::Channel channel{"KELO_HMX_DISPLAYABLESSERVICE"};

constexpr auto table = routeTable(route<RetrieveDisplayableObjectResponseHandler, &IDisplayables::retrieveDisplayableObject>(
                                      commands::retrieve, DisplayableObject::elementPattern),
                                  route<RetrieveDisplayableObjectsResponseHandler, &IDisplayables::retrieveDisplayableObjects>(
                                      commands::retrieve, DisplayableObject::resourcePath));

}  // namespace

DisplayablesService::DisplayablesService(IDisplayables* impl) : ResourceService{"DisplayablesService", impl, table, channel} {}

std::span<const Route> DisplayablesService::routes() noexcept {
    return table.routes;
}

}  // namespace kelo::hmx
