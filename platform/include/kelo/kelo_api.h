// The consumer's side of a resolved service.
#pragma once

#include <chrono>
#include <memory>

#include "kelo/request.h"
#include "kelo/response_handler.h"

namespace kelo {

struct RequestLimits {
    // The time until the first answer; after it the request ends with 504. A value <= 0 means no limit. The request's own option
    // "deadline" takes precedence.
    std::chrono::milliseconds deadline{10'000};
};

// Sends requests to one service and delivers the answers. Thread: any.
class IKeloApi {
public:
    static constexpr void* UNDEFINED_REQUEST_HANDLE = nullptr;

    virtual ~IKeloApi() = default;

    // Sends the request, as one-shot if it or the handler says so. Every accepted request ends exactly once: at its handler with
    // the provider's terminal event, with 503 if the connection is lost, or with 504 at the deadline; or silently by `cancel`. A
    // failure that is known at once (service gone: 503 "… not sent"; too many requests in flight: 503) is delivered before this
    // returns UNDEFINED_REQUEST_HANDLE. Handlers are called on the thread that reads the service's connection.
    virtual void* request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler,
                          RequestLimits limits = {}) = 0;
    // Ends the request without a further event to its handler; an event that another thread is delivering may still finish. A
    // handle that is over or unknown is ignored.
    virtual void cancel(void* handle) = 0;
};

}  // namespace kelo
