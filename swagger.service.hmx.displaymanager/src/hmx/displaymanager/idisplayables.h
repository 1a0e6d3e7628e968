// The display manager's requests about displayables.
#pragma once

#include <cstddef>
#include <memory>

#include "hmx/displaymanager/displayable.h"
#include "hmx/displaymanager/displayable_update.h"
#include "hmx/displaymanager/displayables_info.h"
#include "kelo/response_handler.h"

namespace kelo::hmx::displaymanager {

// For requests and handles see IDisplays. Thread: any.
class IDisplayables {
public:
    virtual ~IDisplayables() = default;
    virtual void* getDisplayables(std::unique_ptr<IResponseHandler<DisplayablesInfo>>&& handler) = 0;
    virtual void* getDisplayable(std::unique_ptr<IResponseHandler<Displayable>>&& handler, int displayableId) = 0;
    virtual void* updateDisplayable(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, int displayableId,
                                    const DisplayableUpdate& update) = 0;
};

}  // namespace kelo::hmx::displaymanager
