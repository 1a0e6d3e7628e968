// The resource "/popups".
#pragma once

#include <span>

#include "hmx/ipopups.h"
#include "hmx/resource_service.h"
#include "hmx/response_handler_base.h"

namespace kelo::hmx {

using RetrievePopupObjectResponseHandler = ResponseHandler<PopupObject, "retrievePopupObject">;
using RetrievePopupObjectsResponseHandler = ResponseHandler<PopupObjectListPage, "retrievePopupObjects">;
using UpdatePopupObjectResponseHandler = ResponseHandler<kelo::url, "updatePopupObject">;

// Thread: as ResourceService.
class PopupsService final : public ResourceService {
public:
    // `impl` is not owned and must outlive the service.
    explicit PopupsService(IPopups* impl);
    [[nodiscard]] static std::span<const Route> routes() noexcept;
};

}  // namespace kelo::hmx
