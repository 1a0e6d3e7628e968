// A request for a resource has two ends: the downstream handler, which the resource service created, and the upstream request,
// which a client stub sent. Either may finish first; each finishes once:
//
//     downstream ends   the handler takes its last value, or the client cancels or dies (cancelRequest)  -> cancel upstream
//     upstream ends     it completes, fails, or its service is lost (the API then ends it with an error) -> one terminal event
//     downstream
//
// Everything happens on the bridge's worker: operations, cancellations and upstream events are all posted there. The worker runs
// its events in order, and a key leaves the bridge only after the operation's event was posted. So a cancellation always finds
// its request, unless that is over. Upstream events that were posted before a cancellation ran find nothing and are dropped.
//
// An upstream handle is valid only for the API that issued it. The API attached to a bridge may change between a request and its
// cancellation, so each request keeps the API that it was made with. An API outlives the process's bridges, and ignores handles
// that are over.
#include "bridge/pending_requests.h"

#include <atomic>
#include <cstdint>

namespace hmx {

RequestKey newRequestKey() noexcept {
    static std::atomic<std::uintptr_t> next{1};
    return reinterpret_cast<RequestKey>(next.fetch_add(1, std::memory_order_relaxed));  // opaque: never dereferenced
}

void UpstreamRequest::cancel() const {
    if (handle != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) api->cancel(handle);
}

}  // namespace hmx
