// The resource "/displayables".
#pragma once

#include <span>

#include "hmx/idisplayables.h"
#include "hmx/resource_service.h"
#include "hmx/response_handler_base.h"

namespace kelo::hmx {

using RetrieveDisplayableObjectResponseHandler = ResponseHandler<DisplayableObject, "retrieveDisplayableObject">;
using RetrieveDisplayableObjectsResponseHandler = ResponseHandler<DisplayableObjectListPage, "retrieveDisplayableObjects">;

// Thread: as ResourceService.
class DisplayablesService final : public ResourceService {
public:
    // `impl` is not owned and must outlive the service.
    explicit DisplayablesService(IDisplayables* impl);
    [[nodiscard]] static std::span<const Route> routes() noexcept;
};

}  // namespace kelo::hmx
