#include "hmx/layerconfigurations_service.h"

namespace kelo::hmx {

namespace {

const tracing::Channel channel{"KELO_HMX_LAYERCONFIGURATIONSSERVICE"};

constexpr auto table =
    routeTable(route<RetrieveLayerconfigurationObjectResponseHandler, &ILayerconfigurations::retrieveLayerconfigurationObject>(
                   commands::retrieve, LayerconfigurationObject::elementPattern),
               route<RetrieveLayerconfigurationObjectsResponseHandler, &ILayerconfigurations::retrieveLayerconfigurationObjects>(
                   commands::retrieve, LayerconfigurationObject::resourcePath));

}  // namespace

LayerconfigurationsService::LayerconfigurationsService(ILayerconfigurations* impl)
    : ResourceService{"LayerconfigurationsService", impl, table, channel} {}

std::span<const Route> LayerconfigurationsService::routes() noexcept {
    return table.routes;
}

}  // namespace kelo::hmx
