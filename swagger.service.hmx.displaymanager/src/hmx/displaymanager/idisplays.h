// The display manager's requests about displays.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/display_update.h"
#include "hmx/displaymanager/displays_info.h"
#include "kelo/response_handler.h"

namespace kelo::hmx::displaymanager {

// Each operation sends one request and returns its handle, for IKeloApi::cancel. The handler gets the answers on the thread that
// reads the service's connection. UNDEFINED_REQUEST_HANDLE: nothing was sent, and the handler has already got an error. Thread:
// any.
class IDisplays {
public:
    virtual ~IDisplays() = default;
    virtual void* getDisplays(std::unique_ptr<IResponseHandler<DisplaysInfo>>&& handler) = 0;
    virtual void* getDisplay(std::unique_ptr<IResponseHandler<Display>>&& handler, const std::string& displayId) = 0;
    virtual void* updateDisplay(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler, const std::string& displayId,
                                const DisplayUpdate& update) = 0;
};

}  // namespace kelo::hmx::displaymanager
