// The common part of the bridges to the display manager: a resource that can only be retrieved, as a whole or by element.
#pragma once

#include <memory>

#include "bridge/attachment.h"
#include "bridge/id_table.h"
#include "bridge/pending_requests.h"
#include "bridge/spare_elements.h"
#include "comm/active_object.h"
#include "kelo/optional.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"
#include "service_tracker.h"

namespace hmx {

template <class Receiver>
class UpstreamHandler;

// `Resource` names the types that differ:
//     Interface, Element, ListPage   of the resource
//     Client                         the interface of the upstream client stub
//     All, One                       the stub's answers for the whole resource and for one element
//     Key                            identifies an element upstream: std::string or int
// Keeps no elements: every retrieve asks upstream. One that is not one-shot passes on what upstream reports until it ends. The
// bridge keeps only the ids it has seen, and the memory of the last page. The operations and `cancelRequest` post their work to
// the worker and return at once. Thread: the bridge's worker; operations and `cancelRequest`: any.
template <class Resource>
class DisplaySideBridge : public Resource::Interface {
    using All = typename Resource::All;
    using One = typename Resource::One;
    using Key = typename Resource::Key;

    // What must be known about a request when its answer comes.
    struct RequestDetails {
        kelo::optional<kelo::toluglobals::ToluParams> params;
        Key key{};  // of the element that was asked for; not used for the whole resource
    };

    // Receives answers of one type. Thread: the bridge's worker.
    template <class Answer>
    struct Receiver {
        using Value = Answer;
        void onNext(const Answer& answer) const;
        void onError(const kelo::Response& response) const;
        void onCompleted() const;

        DisplaySideBridge* bridge;
        RequestKey key;
    };

public:
    using Element = typename Resource::Element;
    using ListPage = typename Resource::ListPage;

    // Shares ownership of the worker, and must outlive what is queued there.
    explicit DisplaySideBridge(std::shared_ptr<comm::ActiveObject> worker);

    // Sends through this API from now on. Requests in progress keep the API that they were made with.
    void setApi(const ServiceApi& api);
    // Stops sending. No effect if nothing is attached.
    void resetApi();

    // `key`: the result of an operation. Ends its request without an event to the handler; ignored if the request is over.
    void cancelRequest(void* key) final;

protected:
    // The handlers of the two upstream requests.
    using AllHandler = UpstreamHandler<Receiver<All>>;
    using OneHandler = UpstreamHandler<Receiver<One>>;

    // The two operations, with the names that the interface gives them. They return the request's key.
    void* retrieveList(std::unique_ptr<kelo::IResponseHandler<ListPage>>&& handler,
                       const kelo::optional<kelo::toluglobals::ToluParams>& params);
    void* retrieveElement(std::unique_ptr<kelo::IResponseHandler<Element>>&& handler, const std::UUID& id,
                          const kelo::optional<kelo::toluglobals::ToluParams>& params);

private:
    using Pending = PendingRequests<RequestDetails, ListPage, Element>;

    void askOne(RequestKey key, std::unique_ptr<typename Pending::Request> request);
    // False if the request is over.
    bool deliver(RequestKey key, const All& all);
    bool deliver(RequestKey key, const One& one);

    const std::shared_ptr<comm::ActiveObject> worker_;
    Attachment<typename Resource::Client> upstream_;
    IdTable<Key> ids_;
    SpareElements<Element> spare_;
    Pending pending_;
};

}  // namespace hmx
