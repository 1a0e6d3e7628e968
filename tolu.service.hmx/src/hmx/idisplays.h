// The requests of the resource "/displays".
#pragma once

#include <memory>

#include "hmx/display_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"

namespace kelo::hmx {

// Each operation starts one request and returns its handle, or UNDEFINED_REQUEST_HANDLE if there is nothing to cancel. The
// handler gets the answers on any thread, possibly before the operation returns. The other arguments belong to the caller and are
// valid until the operation returns. Thread: any.
class IDisplays {
public:
    virtual ~IDisplays() = default;
    virtual void* retrieveDisplayObject(std::unique_ptr<IResponseHandler<DisplayObject>>&& handler, const std::UUID& id,
                                        const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* retrieveDisplayObjects(std::unique_ptr<IResponseHandler<DisplayObjectListPage>>&& handler,
                                         const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    // The handler of that request gets no further event. A handle of a request that is over is ignored.
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
