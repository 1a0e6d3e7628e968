// The requests of the resource "/displayables".
#pragma once

#include <memory>

#include "hmx/displayable_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"

namespace kelo::hmx {

// Each operation starts one request and returns its handle, UNDEFINED_REQUEST_HANDLE when there is nothing to cancel. The handler
// gets the answers, on any thread and possibly before the operation returns; the other arguments are the caller's, and good until
// it returns. Thread: any.
class IDisplayables {
public:
    virtual ~IDisplayables() = default;
    virtual void* retrieveDisplayableObject(std::unique_ptr<IResponseHandler<DisplayableObject>>&& handler, const std::UUID& id,
                                            const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* retrieveDisplayableObjects(std::unique_ptr<IResponseHandler<DisplayableObjectListPage>>&& handler,
                                             const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    // The handler of that request gets no further event. Handles of requests that are over are ignored.
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
