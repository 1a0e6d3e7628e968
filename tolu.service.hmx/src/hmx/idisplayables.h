// The requests of the resource "/displayables".
#pragma once

#include <memory>

#include "hmx/displayable_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"

namespace kelo::hmx {

// For requests and handles see IDisplays (hmx/idisplays.h). Thread: any.
class IDisplayables {
public:
    virtual ~IDisplayables() = default;
    virtual void* retrieveDisplayableObject(std::unique_ptr<IResponseHandler<DisplayableObject>>&& handler, const std::UUID& id,
                                            const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* retrieveDisplayableObjects(std::unique_ptr<IResponseHandler<DisplayableObjectListPage>>&& handler,
                                             const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
