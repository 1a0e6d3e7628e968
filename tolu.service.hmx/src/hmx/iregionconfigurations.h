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

// Each operation starts one request and returns its handle, UNDEFINED_REQUEST_HANDLE when there is nothing to cancel. The handler
// gets the answers, on any thread and possibly before the operation returns; the other arguments are the caller's, and good until
// it returns. Thread: any.
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
    // The handler of that request gets no further event. Handles of requests that are over are ignored.
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo::hmx
