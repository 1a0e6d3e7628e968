// The requests of the resource "/layerconfigurations".
#pragma once

#include <memory>

#include "hmx/layerconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"

namespace kelo::hmx {

// For requests and handles see IDisplays (hmx/idisplays.h). Thread: any.
class ILayerconfigurations {
public:
    virtual ~ILayerconfigurations() = default;
    virtual void* retrieveLayerconfigurationObject(std::unique_ptr<IResponseHandler<LayerconfigurationObject>>&& handler,
                                                   const std::UUID& id,
                                                   const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* retrieveLayerconfigurationObjects(std::unique_ptr<IResponseHandler<LayerconfigurationObjectListPage>>&& handler,
                                                    const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
