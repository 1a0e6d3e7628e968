// The resource "/regionconfigurations".
#pragma once

#include <span>

#include "hmx/iregionconfigurations.h"
#include "hmx/resource_service.h"
#include "hmx/response_handler_base.h"

namespace kelo::hmx {

using DeleteRegionconfigurationObjectResponseHandler = ResponseHandler<std::nullptr_t, "deleteRegionconfigurationObject">;
using InsertRegionconfigurationObjectResponseHandler = ResponseHandler<kelo::url, "insertRegionconfigurationObject">;
using RetrieveRegionconfigurationObjectResponseHandler =
    ResponseHandler<RegionconfigurationObject, "retrieveRegionconfigurationObject">;
using UpdateRegionconfigurationObjectResponseHandler = ResponseHandler<kelo::url, "updateRegionconfigurationObject">;

// Thread: as ResourceService.
class RegionconfigurationsService final : public ResourceService {
public:
    // `impl` is not owned and must outlive the service.
    explicit RegionconfigurationsService(IRegionconfigurations* impl);
    [[nodiscard]] static std::span<const Route> routes() noexcept;
};

}  // namespace kelo::hmx
