// The provider's side of a request.
#pragma once

#include <memory>
#include <string>

#include "kelo/request.h"
#include "kelo/response.h"

namespace kelo {

class Account;

// Sends the answers to one request. Owned by the code that answers. If it is destroyed before the request has ended, the request
// ends with 503 "no answer, outcome unknown", so a client never hangs. Answers to a request that is over (ended, cancelled,
// client gone) are dropped. Thread: any, one call at a time; the calling thread writes to the client's socket itself.
class IResponder {
public:
    virtual ~IResponder() = default;
    // True if this was the last value: the client asked for only one, or is gone. A client that reads slowly may miss values
    // between the one it has and the newest.
    virtual bool next(const Response& response) = 0;
    virtual void error(const Response& response) = 0;
    virtual void completed() = 0;
    // The client's account; valid as long as the responder. Null if there is nobody to charge.
    virtual Account* account() const noexcept { return nullptr; }
};

// Answers the requests below one root path. Must outlive its registration.
class IResourceHandler {
public:
    virtual ~IResourceHandler() = default;
    // Starts a request. The answer may be sent through `responder` at once or later. `tag`: the client's trace id. Returns the
    // handle for `cancelRequest`, or UNDEFINED_REQUEST_HANDLE if there is nothing to cancel. Thread: the runtime's, one call at a
    // time for each client connection.
    virtual void* actionRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag) = 0;
    // The client has cancelled the request or is gone. May be called after the request has ended. Thread: the runtime's.
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo
