// The consumer's side of a resolved service.
#pragma once

#include <chrono>
#include <memory>

#include "kelo/request.h"
#include "kelo/response_handler.h"

namespace kelo {

struct RequestLimits {
    // Until the first answer; 504 after it. A value <= 0 waits for ever. The request's own option "deadline" goes before it.
    std::chrono::milliseconds deadline{10'000};
};

// Sends requests to one service and hands the answers out. Thread: any.
class IKeloApi {
public:
    static constexpr void* UNDEFINED_REQUEST_HANDLE = nullptr;

    virtual ~IKeloApi() = default;

    // Sends the request (one-shot if it or the handler says so). Every accepted request ends exactly once at its handler: with
    // its provider's terminal event, with 503 when the connection is lost, with 504 at the deadline, or silently by `cancel`.
    // What is known at once (service gone: 503 "… not sent"; too many in flight: 503) is delivered before this returns
    // UNDEFINED_REQUEST_HANDLE. Handlers are called on the thread that reads the service's connection.
    virtual void* request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler,
                          RequestLimits limits = {}) = 0;
    // Ends the request without a further event to its handler; one that is being delivered on another thread may still finish.
    // A handle that is over or foreign is ignored.
    virtual void cancel(void* handle) = 0;
};

}  // namespace kelo
