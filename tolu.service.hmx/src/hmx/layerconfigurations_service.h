// The resource "/layerconfigurations".
#pragma once

#include <span>

#include "hmx/ilayerconfigurations.h"
#include "hmx/resource_service.h"
#include "hmx/response_handler_base.h"

namespace kelo::hmx {

using RetrieveLayerconfigurationObjectResponseHandler =
    ResponseHandler<LayerconfigurationObject, "retrieveLayerconfigurationObject">;
using RetrieveLayerconfigurationObjectsResponseHandler =
    ResponseHandler<LayerconfigurationObjectListPage, "retrieveLayerconfigurationObjects">;

// Thread: as ResourceService.
class LayerconfigurationsService final : public ResourceService {
public:
    // `impl` is not owned and must outlive the service.
    explicit LayerconfigurationsService(ILayerconfigurations* impl);
    [[nodiscard]] static std::span<const Route> routes() noexcept;
};

}  // namespace kelo::hmx
