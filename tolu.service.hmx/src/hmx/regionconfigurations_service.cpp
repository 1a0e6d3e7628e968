#include "hmx/regionconfigurations_service.h"

namespace kelo::hmx {

namespace {

const tracing::Channel channel{"KELO_HMX_REGIONCONFIGURATIONSSERVICE"};

constexpr auto table =
    routeTable(route<DeleteRegionconfigurationObjectResponseHandler, &IRegionconfigurations::deleteRegionconfigurationObject>(
                   commands::remove, RegionconfigurationObject::elementPattern),
               route<InsertRegionconfigurationObjectResponseHandler, &IRegionconfigurations::insertRegionconfigurationObject>(
                   commands::insert, RegionconfigurationObject::resourcePath),
               route<RetrieveRegionconfigurationObjectResponseHandler, &IRegionconfigurations::retrieveRegionconfigurationObject>(
                   commands::retrieve, RegionconfigurationObject::elementPattern),
               route<UpdateRegionconfigurationObjectResponseHandler, &IRegionconfigurations::updateRegionconfigurationObject>(
                   commands::update, RegionconfigurationObject::elementPattern));

}  // namespace

RegionconfigurationsService::RegionconfigurationsService(IRegionconfigurations* impl)
    : ResourceService{"RegionconfigurationsService", impl, table, channel} {}

std::span<const Route> RegionconfigurationsService::routes() noexcept {
    return table.routes;
}

}  // namespace kelo::hmx
