// A request of a resource has two ends: the handler downstream, which the resource service made, and the upstream request, which
// a client stub sent. Either end may be the first to go, and each goes once:
//
//     downstream goes   the handler takes its last value, or the client cancels or dies (cancelRequest)  -> cancel upstream
//     upstream goes     it completes, fails, or its service is lost (the API then ends it with an error) -> one terminal event
//     downstream
//
// Everything happens on the bridge's worker: operations, cancellations and upstream events are all posted there. The worker runs
// its events in order, and a key leaves the bridge only after the operation's event was posted, so a cancellation always finds
// its request, unless that is over. Upstream events that were posted before a cancellation ran find nothing and are dropped.
//
// An upstream handle means something to the API that issued it and to no other. The API that is attached to a bridge may change
// between request and cancellation, so each request keeps the one that it was made with; an API outlives the process's bridges,
// and ignores handles that are over.
#include "bridge/pending_requests.h"

#include <atomic>
#include <cstdint>

namespace hmx {

RequestKey newRequestKey() noexcept {
    static std::atomic<std::uintptr_t> next{1};
    return reinterpret_cast<RequestKey>(
        next.fetch_add(1, std::memory_order_relaxed));  // NOLINT(performance-no-int-to-ptr): opaque
}

void UpstreamRequest::cancel() const {
    if (handle != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) api->cancel(handle);
}

}  // namespace hmx
