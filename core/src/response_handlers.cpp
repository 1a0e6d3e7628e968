// A request is live until its first terminal event, and terminated after that. Each handler of a chain has this state for itself
// and changes it before it passes the event on. So one terminal event ends the whole chain, and an event that comes back into the
// chain while the first is being delivered is already late.
//
// A second terminal event is ignored: that of the provider and that of a lost connection may cross. A value after the end is
// different, because its sender has lost track of the request. It is recorded as an error, and the result true drops the handler.
#include "core/response_handlers.h"

#include "kelo/errors.h"

namespace kelo::responsehandlers {

bool Termination::begins(const char* event) {
    if (terminated_) {
        traceAlreadyTerminated(event, false);
        return false;
    }
    traceSetTerminated(event);
    terminated_ = true;
    return true;
}

bool Termination::refuse() {
    traceAlreadyTerminated("onNext", true);
    std::ErrorOutput{errors::Error, errors::alreadyTerminated, "Request already terminated"};
    return true;
}

Response takeErrorResponse() {
    const std::ErrorEntry entry = std::ErrorStorage::current();
    const std::uint16_t status = entry.category == &errors::Error ? errors::error2StatusCode(entry.code) : std::uint16_t{500};
    return Response::createErrorResponse(status, std::ErrorStorage::takeReason());
}

}  // namespace kelo::responsehandlers
