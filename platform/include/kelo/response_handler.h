// The consumer of a request's answers.
#pragma once

#include "kelo/response.h"

namespace kelo {

class Account;

// Any number of onNext, then at most one of onError and onCompleted; after a true from onNext, or a cancellation, nothing more.
// Destroyed when its request has ended. Calls come one at a time; on which thread, says who calls.
template <class T>
class IResponseHandler {
public:
    virtual ~IResponseHandler() = default;
    // True when the request is finished: the handler wants no further event.
    virtual bool onNext(const T& value) = 0;
    virtual void onError(const Response& response) = 0;
    virtual void onCompleted() = 0;
    // Whether one value is all that the handler will take: known before the request is sent, it saves telling the provider later.
    // Handlers that wrap another pass on what that one says.
    virtual bool isOneShot() const { return false; }
    // The client for which the request is made; null: none, the process itself wants to know. Asked when the request is made, and
    // good until that is done. Handlers that wrap another pass on what that one says.
    virtual Account* account() const { return nullptr; }
};

namespace responsehandlers {

// Tracing of what ends a request, on the channel "KELO_RESPONSEHANDLERS", level 0. `event`: "onNext", "onError" or "onCompleted".
void traceSetTerminated(const char* event);
// `isError`: the event was not merely late but breaks the protocol (level 4).
void traceAlreadyTerminated(const char* event, bool isError);

}  // namespace responsehandlers
}  // namespace kelo
