// Serves the resource "/regionconfigurations" and tells the input manager of every change.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bridge/attachment.h"
#include "bridge/pending_requests.h"
#include "bridge/region_conversion.h"
#include "bridge/upstream_handler.h"
#include "comm/active_object.h"
#include "core/resource_data.h"
#include "hmx/inputregions/ihmx_inputregions.h"
#include "hmx/iregionconfigurations.h"
#include "kelo/optional.h"
#include "kelo/toluglobals.h"
#include "service_tracker.h"

namespace hmx {

// Keeps the configurations that the input manager has accepted; they are not read back from it. The operations and
// `cancelRequest` post their work to the worker and return at once, the operations with the request's key. Thread: the bridge's
// worker, but for operations and `cancelRequest`: any.
class InputBridge final : public kelo::hmx::IRegionconfigurations {
    using Object = kelo::hmx::RegionconfigurationObject;

    // One change on its way through the input manager. Thread: the bridge's worker.
    struct Change {
        RegionAddress address;
        std::shared_ptr<Object> object;  // as it is to be; not in the cache yet
        bool isRemoval = false;          // what is accepted is erased from the cache rather than put into it
        bool isAccepted = false;
        UpstreamRequest upstream{};  // none when that is over with its first answer
    };
    // Receives the input manager's answers to it. Thread: the bridge's worker.
    struct ChangeReceiver {
        using Value = std::nullptr_t;
        void onNext(const Value&) const;
        void onError(const kelo::Response& response) const;
        void onCompleted() const;

        InputBridge* bridge;
        RequestKey key;
        std::shared_ptr<Change> change;
    };

public:
    using CUpdateInputRegionsResponseHandler = UpstreamHandler<ChangeReceiver>;

    // Shares the worker and outlives whatever is queued there.
    explicit InputBridge(std::shared_ptr<comm::ActiveObject> worker);

    // Sends through this API from now on. Changes that are under way keep the one that they were sent with.
    void setApi(const ServiceApi& api);
    // Sends nothing from now on. Harmless when nothing is attached.
    void resetApi();

    // Tells the input manager to clear the configuration's regions. `fields` is not consulted.
    void* deleteRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<std::nullptr_t>>&& handler, const std::UUID& id,
                                          const kelo::optional<std::vector<std::string>>& fields) override;
    // Replaces the configuration if there is one for the same display, HMI and subcomponent.
    void* insertRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<kelo::url>>&& handler,
                                          const kelo::hmx::InsertRegionconfigurationObject& insert) override;
    void* retrieveRegionconfigurationObject(
        std::unique_ptr<kelo::IResponseHandler<kelo::hmx::RegionconfigurationObject>>&& handler, const std::UUID& id,
        const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    void* updateRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                          const kelo::hmx::UpdateRegionconfigurationObject& update) override;
    // `key`: what an operation returned. Its handler hears nothing more; a request that is over is ignored. A change that is on
    // its way to the input manager is not called back.
    void cancelRequest(void* key) override;

private:
    // Sends a change, or answers that there is no client.
    template <class Result>
    void send(RequestKey key, std::unique_ptr<kelo::IResponseHandler<Result>> handler, Change change, const char* noClient);
    void accepted(RequestKey key, Change& change);

    const std::shared_ptr<comm::ActiveObject> worker_;
    Attachment<kelo::hmx::inputregions::IHmx_inputregions> upstream_;
    kelo::tolu::ToluResourceData<Object> cache_;
    using Pending = PendingRequests<std::shared_ptr<const Change>, kelo::url, std::nullptr_t>;
    Pending pending_;
};

}  // namespace hmx
