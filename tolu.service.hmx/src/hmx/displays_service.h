// The resource "/displays".
#pragma once

#include <span>

#include "hmx/idisplays.h"
#include "hmx/resource_service.h"
#include "hmx/response_handler_base.h"

namespace kelo::hmx {

using RetrieveDisplayObjectResponseHandler = ResponseHandler<DisplayObject, "retrieveDisplayObject">;
using RetrieveDisplayObjectsResponseHandler = ResponseHandler<DisplayObjectListPage, "retrieveDisplayObjects">;

// Thread: as ResourceService.
class DisplaysService final : public ResourceService {
public:
    // `impl` is not owned and must outlive the service.
    explicit DisplaysService(IDisplays* impl);
    [[nodiscard]] static std::span<const Route> routes() noexcept;
};

}  // namespace kelo::hmx
