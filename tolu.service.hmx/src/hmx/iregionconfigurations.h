// The requests of the resource "/regionconfigurations".
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "hmx/insert_regionconfiguration_object.h"
#include "hmx/regionconfiguration_object.h"
#include "hmx/update_regionconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"
#include "kelo/url.h"

namespace kelo::hmx {

// For requests and handles see IDisplays (hmx/idisplays.h). Thread: any.
class IRegionconfigurations {
public:
    virtual ~IRegionconfigurations() = default;
    virtual void* deleteRegionconfigurationObject(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler,
                                                  const std::UUID& id,
                                                  const kelo::optional<std::vector<std::string>>& fields) = 0;
    virtual void* insertRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler,
                                                  const InsertRegionconfigurationObject& body) = 0;
    virtual void* retrieveRegionconfigurationObject(std::unique_ptr<IResponseHandler<RegionconfigurationObject>>&& handler,
                                                    const std::UUID& id,
                                                    const kelo::optional<kelo::toluglobals::ToluParams>& params) = 0;
    virtual void* updateRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                                  const UpdateRegionconfigurationObject& body) = 0;
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
