// The requests of the resource "/popups".
#pragma once

#include <memory>

#include "hmx/popup_object.h"
#include "hmx/update_popup_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"
#include "kelo/url.h"

namespace kelo::hmx {

// For requests and handles see IDisplays (hmx/idisplays.h). Thread: any.
class IPopups {
public:
    virtual ~IPopups() = default;
    virtual void* retrievePopupObject(std::unique_ptr<IResponseHandler<PopupObject>>&& handler, const std::UUID& id,
                                      const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* retrievePopupObjects(std::unique_ptr<IResponseHandler<PopupObjectListPage>>&& handler,
                                       const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* updatePopupObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                    const UpdatePopupObject& body) = 0;
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
