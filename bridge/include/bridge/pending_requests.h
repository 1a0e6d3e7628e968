// The requests that a bridge has under way: who asked, what was asked upstream, and how the two ends of each end together.
#pragma once

#include <memory>
#include <unordered_map>
#include <utility>
#include <variant>

#include "kelo/kelo_api.h"
#include "kelo/response_handler.h"
#include "util/spare_nodes.h"

namespace hmx {

// Names a request between the resource service and its bridge: what a bridge's operation returns and `cancelRequest` is given.
// Never null, and never the same twice in the life of the process, so that a late cancellation finds nothing rather than somebody
// else's request.
using RequestKey = void*;

// Thread: any.
[[nodiscard]] RequestKey newRequestKey() noexcept;

// The upstream end of a request. Thread: the bridge's worker (a value).
struct UpstreamRequest {
    // The API that issued the handle, which need not be the one that is attached now; not owned.
    kelo::IKeloApi* api = nullptr;
    void* handle = kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE;

    // Ends the request upstream, if there is one and it still runs.
    void cancel() const;
};

// The requests of one bridge, each with one downstream handler, for a result of one of the types `Results`, and a `Context` for
// the bridge's own use. It is here that
//  - a request that is finished downstream (its handler took its last value) is cancelled upstream;
//  - a request that is cancelled downstream is cancelled upstream, and its handler hears nothing more;
//  - a request that ends upstream, or is lost with its service, gives its handler exactly one terminal event;
//  - events of a request that is over are ignored.
// Thread: the bridge's worker.
template <class Context, class... Results>
class PendingRequests {
public:
    template <class Result>
    using Handler = std::unique_ptr<kelo::IResponseHandler<Result>>;

    PendingRequests() = default;
    PendingRequests(const PendingRequests&) = delete;
    PendingRequests& operator=(const PendingRequests&) = delete;
    // Destroys the handlers that are left without an event and leaves their upstream requests alone.
    ~PendingRequests() = default;

    // Enters a request and makes its upstream one: `ask` calls the upstream stub and returns the handle that it got from it,
    // which `api` issued. The handler of the upstream request reports to the functions below, and may do so inside the call. A
    // throw of `ask` ends the request without an event.
    template <class Result, class Ask>
    void start(RequestKey key, Handler<Result> handler, Context context, kelo::IKeloApi* api, Ask&& ask) {
        const bool oneShot = handler->isOneShot();
        Request& entered = spare_.enter(requests_, key).first->second;
        entered.handler = std::move(handler);
        entered.context = std::move(context);
        entered.oneShot = oneShot;
        UpstreamRequest upstream{api};
        try {
            upstream.handle = ask();
        } catch (...) {
            abandon(key);
            throw;
        }
        if (Request* const request = find(key)) {
            request->upstream = upstream;
        } else {
            upstream.cancel();
        }
    }

    // The context of a request, null when it is over. Good until the next call of a function that may end the request.
    const Context* context(RequestKey key) const noexcept {
        const auto entry = requests_.find(key);
        return entry == requests_.end() ? nullptr : &entry->second.context;
    }

    // Upstream has a value: hands down the Result that `make()` makes of it. False, and nothing is made, when there is no such
    // request or it waits for another type. A throw of `make` or of the handler ends the request at both ends, downstream without
    // an event.
    template <class Result, class Make>
    bool next(RequestKey key, Make&& make) {
        Request* const request = find(key);
        const auto* const handler = request == nullptr ? nullptr : std::get_if<Handler<Result>>(&request->handler);
        if (handler == nullptr) return false;
        bool finished = false;
        try {
            finished = (*handler)->onNext(make());
        } catch (...) {
            cancel(key);
            throw;
        }
        if (!finished && !request->oneShot) return true;
        const Request over = take(key);
        if (!over.oneShot) {
            over.upstream.cancel();
        } else if (!finished) {
            over.complete();  // one value was all that was asked for upstream, so that end is over
        }
        return true;
    }

    // Upstream ended.
    void fail(RequestKey key, const kelo::Response& response) {
        if (find(key) == nullptr) return;
        const Request over = take(key);
        std::visit([&](const auto& handler) { handler->onError(response); }, over.handler);
    }
    void complete(RequestKey key) {
        if (find(key) != nullptr) take(key).complete();
    }

    // Cancelled downstream. False when there is no such request.
    bool cancel(RequestKey key) {
        if (find(key) == nullptr) return false;
        take(key).upstream.cancel();
        return true;
    }
    // The same, but leaves the upstream request to its end.
    bool abandon(RequestKey key) {
        if (find(key) == nullptr) return false;
        take(key);
        return true;
    }

    bool empty() const noexcept { return requests_.empty(); }

private:
    struct Request {
        std::variant<Handler<Results>...> handler;
        Context context;
        bool oneShot = false;
        UpstreamRequest upstream;

        void complete() const {
            std::visit([](const auto& to) { to->onCompleted(); }, handler);
        }
    };

    Request* find(RequestKey key) noexcept {
        const auto entry = requests_.find(key);
        return entry == requests_.end() ? nullptr : &entry->second;
    }
    // A request leaves the table before its last event goes out.
    Request take(RequestKey key) { return spare_.take(requests_, requests_.find(key)); }

    std::unordered_map<RequestKey, Request> requests_;
    util::SpareNodes<std::unordered_map<RequestKey, Request>> spare_;
};

}  // namespace hmx
