// Receives the answers to a request.
#pragma once

#include "kelo/response.h"

namespace kelo {

class Account;

// Gets any number of onNext calls and then at most one of onError and onCompleted; nothing after onNext has returned true or the
// request was cancelled. Destroyed when its request has ended. Calls come one at a time, on the thread that the caller documents.
template <class T>
class IResponseHandler {
public:
    virtual ~IResponseHandler() = default;
    // True if the request is finished: the handler wants no further event.
    virtual bool onNext(const T& value) = 0;
    virtual void onError(const Response& response) = 0;
    virtual void onCompleted() = 0;
    // Whether the handler takes only one value. If this is known before the request is sent, the provider need not be told later.
    // A handler that wraps another returns what that one returns.
    virtual bool isOneShot() const { return false; }
    // The client for which the request is made; null if it is made for the process itself. Called when the request is made; valid
    // until the call that makes it returns. A handler that wraps another returns what that one returns.
    virtual Account* account() const { return nullptr; }
};

namespace responsehandlers {

// Traces the event that ends a request, on the channel "KELO_RESPONSEHANDLERS", level 0. `event`: "onNext", "onError" or
// "onCompleted".
void traceSetTerminated(const char* event);
// `isError`: the event is not only late but violates the protocol (level 4).
void traceAlreadyTerminated(const char* event, bool isError);

}  // namespace responsehandlers
}  // namespace kelo
