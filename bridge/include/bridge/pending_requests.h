// The requests that a bridge has under way: who asked, what was asked upstream, and how the two ends of each end together.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <variant>

#include "kelo/kelo_api.h"
#include "kelo/response_handler.h"
#include "util/block_pool.h"
#include "util/id_map.h"

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

    // A request, from the handler's making to its end.
    struct Request : util::Pooled {
        template <class Result>
        Request(Handler<Result> to, Context of)
            : oneShot{to->isOneShot()}, account{to->account()}, handler{std::move(to)}, context{std::move(of)} {}

        // The last event goes to the handler.
        void fail(const kelo::Response& response) const {
            std::visit([&](const auto& to) { to->onError(response); }, handler);
        }
        void complete() const {
            std::visit([](const auto& to) { to->onCompleted(); }, handler);
        }

        const bool oneShot;
        kelo::Account* const account;  // good while the handler lives
        std::variant<Handler<Results>...> handler;
        Context context;
        UpstreamRequest upstream;
    };

    // Enters a request and makes its upstream one: `ask` calls the upstream stub and returns the handle that it got from it,
    // which `api` issued. The handler of the upstream request reports to the functions below, and may do so inside the call. A
    // throw of `ask` ends the request without an event.
    template <class Ask>
    void start(RequestKey key, std::unique_ptr<Request> entry, kelo::IKeloApi* api, Ask&& ask) {
        requests_.put(idOf(key), std::move(entry));
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
        const Request* const request = requests_.find(idOf(key));
        return request == nullptr ? nullptr : &request->context;
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
        const auto over = take(key);
        if (!over->oneShot) {
            over->upstream.cancel();
        } else if (!finished) {
            over->complete();  // one value was all that was asked for upstream, so that end is over
        }
        return true;
    }

    // Upstream ended.
    void fail(RequestKey key, const kelo::Response& response) {
        if (const auto over = take(key)) over->fail(response);
    }
    void complete(RequestKey key) {
        if (const auto over = take(key)) over->complete();
    }

    // Cancelled downstream. False when there is no such request.
    bool cancel(RequestKey key) {
        const auto over = take(key);
        if (over == nullptr) return false;
        over->upstream.cancel();
        return true;
    }
    // The same, but leaves the upstream request to its end.
    bool abandon(RequestKey key) { return take(key) != nullptr; }

    bool empty() const noexcept { return requests_.empty(); }

private:
    static std::uint64_t idOf(RequestKey key) noexcept { return reinterpret_cast<std::uintptr_t>(key); }
    Request* find(RequestKey key) noexcept { return requests_.find(idOf(key)); }
    // A request leaves the table before its last event goes out.
    std::unique_ptr<Request> take(RequestKey key) noexcept { return requests_.take(idOf(key)); }

    util::IdMap<Request> requests_;
};

}  // namespace hmx
