// The provider's side of a request.
#pragma once

#include <memory>
#include <string>

#include "kelo/request.h"
#include "kelo/response.h"

namespace kelo {

class Account;

// The way back to one request's client. Owned by whoever answers. Destroyed without a terminal answer, it ends the request with
// 503 "no answer, outcome unknown", so that a client never hangs on a silent provider. Answers to a request that is over (ended,
// cancelled, client gone) are dropped. Thread: any, one call at a time; the calling thread writes to the client's socket itself.
class IResponder {
public:
    virtual ~IResponder() = default;
    // True when that was the last one: the client asked for one value only, or is gone. A slow client may miss values between the
    // one it has and the newest.
    virtual bool next(const Response& response) = 0;
    virtual void error(const Response& response) = 0;
    virtual void completed() = 0;
    // The client's; good for as long as the responder lives. Null where there is none to charge.
    virtual Account* account() const noexcept { return nullptr; }
};

// Answers the requests below one root path. Outlives its registration.
class IResourceHandler {
public:
    virtual ~IResourceHandler() = default;
    // Starts a request; the answer may come at once or later, through `responder`. `tag`: the client's trace id. The handle
    // returned is what `cancelRequest` is given; UNDEFINED_REQUEST_HANDLE when there is nothing to cancel.
    // Thread: the runtime's, one call at a time for each client connection.
    virtual void* actionRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag) = 0;
    // The client cancelled the request or went away; may come after the request has ended. Thread: the runtime's.
    virtual void cancelRequest(void* handle) = 0;
};

}  // namespace kelo
