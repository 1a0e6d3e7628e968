// The requests that a bridge has in progress: who asked, what was asked upstream, and how the two ends of each finish together.
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

// Identifies a request between the resource service and its bridge: an operation returns it, and `cancelRequest` takes it. Never
// null, and never used twice in a process, so a late cancellation cannot hit another request.
using RequestKey = void*;

// Thread: any.
[[nodiscard]] RequestKey newRequestKey() noexcept;

// The upstream end of a request. Thread: the bridge's worker (a value).
struct UpstreamRequest {
    // The API that issued the handle, which may not be the one attached now; not owned.
    kelo::IKeloApi* api = nullptr;
    void* handle = kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE;

    // Ends the request upstream, if there is one that is not over.
    void cancel() const;
};

// The requests of one bridge. Each has one downstream handler, for a result of one of the types `Results`, and a `Context` for
// the bridge's own use. The rules:
// - A request that is finished downstream (its handler took its last value) is cancelled upstream.
// - A request that is cancelled downstream is cancelled upstream, and its handler gets no further event.
// - A request that ends upstream, or is lost with its service, gives its handler exactly one terminal event.
// - Events of a request that is over are ignored.
// Thread: the bridge's worker.
template <class Context, class... Results>
class PendingRequests {
public:
    template <class Result>
    using Handler = std::unique_ptr<kelo::IResponseHandler<Result>>;

    PendingRequests() = default;
    PendingRequests(const PendingRequests&) = delete;
    PendingRequests& operator=(const PendingRequests&) = delete;
    // Destroys the remaining handlers without an event; does not touch their upstream requests.
    ~PendingRequests() = default;

    // A request, from the creation of its handler to its end.
    struct Request : util::Pooled {
        template <class Result>
        Request(Handler<Result> to, Context of)
            : oneShot{to->isOneShot()}, account{to->account()}, handler{std::move(to)}, context{std::move(of)} {}

        // Each sends the last event to the handler.
        void fail(const kelo::Response& response) const {
            std::visit([&](const auto& to) { to->onError(response); }, handler);
        }
        void complete() const {
            std::visit([](const auto& to) { to->onCompleted(); }, handler);
        }

        const bool oneShot;
        kelo::Account* const account;  // valid while the handler exists
        std::variant<Handler<Results>...> handler;
        Context context;
        UpstreamRequest upstream;
    };

    // Enters a request and sends its upstream request: `ask` calls the upstream stub and returns the handle, which `api` issued.
    // The handler of the upstream request calls the functions below, possibly before `ask` returns. If `ask` throws, the request
    // ends without an event.
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

    // The context of a request; null if it is over. Valid until the next call that may end the request.
    const Context* context(RequestKey key) const noexcept {
        const Request* const request = requests_.find(idOf(key));
        return request == nullptr ? nullptr : &request->context;
    }

    // Upstream has sent a value: passes the Result that `make()` returns to the handler. If there is no such request, or it waits
    // for another type, returns false without calling `make`. If `make` or the handler throws, the request ends at both ends,
    // downstream without an event.
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
            over->complete();  // the one-shot request upstream has ended with this value
        }
        return true;
    }

    // Upstream has ended.
    void fail(RequestKey key, const kelo::Response& response) {
        if (const auto over = take(key)) over->fail(response);
    }
    void complete(RequestKey key) {
        if (const auto over = take(key)) over->complete();
    }

    // The request was cancelled downstream. False if there is no such request.
    bool cancel(RequestKey key) {
        const auto over = take(key);
        if (over == nullptr) return false;
        over->upstream.cancel();
        return true;
    }
    // The same, but the upstream request continues.
    bool abandon(RequestKey key) { return take(key) != nullptr; }

    bool empty() const noexcept { return requests_.empty(); }

private:
    static std::uint64_t idOf(RequestKey key) noexcept { return reinterpret_cast<std::uintptr_t>(key); }
    Request* find(RequestKey key) noexcept { return requests_.find(idOf(key)); }
    // A request leaves the table before its last event is sent.
    std::unique_ptr<Request> take(RequestKey key) noexcept { return requests_.take(idOf(key)); }

    util::IdMap<Request> requests_;
};

}  // namespace hmx
