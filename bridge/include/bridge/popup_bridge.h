// Serves the resource "/popups" from the popup manager.
#pragma once

#include <memory>
#include <vector>

#include "bridge/attachment.h"
#include "bridge/id_table.h"
#include "bridge/pending_requests.h"
#include "bridge/popup_conversion.h"
#include "bridge/upstream_handler.h"
#include "comm/active_object.h"
#include "hmx/ipopups.h"
#include "hmx/popups/ihmx_popups.h"
#include "kelo/optional.h"
#include "kelo/toluglobals.h"
#include "service_tracker.h"

namespace hmx {

// Keeps no popups: every retrieve asks upstream. One that is not one-shot passes on what upstream reports until it ends. The
// bridge keeps only the ids it has seen. The operations and `cancelRequest` post their work to the worker and return at once; the
// operations return the request's key. Thread: the bridge's worker; operations and `cancelRequest`: any.
class PopupBridge final : public kelo::hmx::IPopups {
    // Each receives the answers to one kind of upstream request. Thread: the bridge's worker.
    struct Receiver {
        void onCompleted() const;

        PopupBridge* bridge;
        RequestKey key;
    };
    struct PopupsReceiver : Receiver {
        using Value = std::vector<kelo::hmx::popups::Popup>;
        void onNext(const Value& popups) const;
        void onError(const kelo::Response& response) const;
    };
    struct PopupReceiver : Receiver {
        using Value = kelo::hmx::popups::Popup;
        void onNext(const Value& popup) const;
        void onError(const kelo::Response& response) const;
    };
    struct UpdateReceiver : Receiver {
        using Value = kelo::hmx::popups::Popup;
        void onNext(const Value& popup) const;
        void onError(const kelo::Response& response) const;
    };

public:
    using GetPopups = UpstreamHandler<PopupsReceiver>;
    using GetPopup = UpstreamHandler<PopupReceiver>;
    using UpdatePopupState = UpstreamHandler<UpdateReceiver>;

    // Shares ownership of the worker, and must outlive what is queued there.
    explicit PopupBridge(std::shared_ptr<comm::ActiveObject> worker);

    // Sends through this API from now on. Requests in progress keep the API that they were made with.
    void setApi(const ServiceApi& api);
    // Stops sending. No effect if nothing is attached.
    void resetApi();

    void* retrievePopupObject(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::PopupObject>>&& handler, const std::UUID& id,
                              const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    // The query value "display" is required. "name" asks for only the popup of that name. Without it, "active", "isFullscreen",
    // "requested", "slot" and "visible" ask upstream for only the popups in that state.
    void* retrievePopupObjects(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::PopupObjectListPage>>&& handler,
                               const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    void* updatePopupObject(std::unique_ptr<kelo::IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                            const kelo::hmx::UpdatePopupObject& update) override;
    // `key`: the result of an operation. Ends its request without an event to the handler; ignored if the request is over.
    void cancelRequest(void* key) override;

private:
    // What must be known about a request when its answer comes.
    struct RequestDetails {
        PopupKey popup;  // without a name if all popups of the display were asked for
        kelo::optional<kelo::toluglobals::ToluParams> params;
        kelo::url uri;  // of the element that is updated
    };

    // Sends the request that `ask(client, upstream handler)` makes, or answers that there is no client.
    template <class Upstream, class Result, class Ask>
    void start(RequestKey key, std::unique_ptr<kelo::IResponseHandler<Result>> handler, RequestDetails details,
               const char* noClient, Ask&& ask);
    kelo::hmx::PopupObject toObject(const RequestDetails& details, const kelo::hmx::popups::Popup& popup);

    const std::shared_ptr<comm::ActiveObject> worker_;
    Attachment<kelo::hmx::popups::IHmx_popups> upstream_;
    IdTable<PopupKey, PopupKeyHash, PopupKeyEqual> ids_;
    using Pending = PendingRequests<RequestDetails, kelo::hmx::PopupObjectListPage, kelo::hmx::PopupObject, kelo::url>;
    Pending pending_;
};

}  // namespace hmx
