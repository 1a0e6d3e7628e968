// Serves the resource "/regionconfigurations" and sends every change to the input manager.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "bridge/attachment.h"
#include "bridge/kept_region.h"
#include "bridge/pending_requests.h"
#include "bridge/region_conversion.h"
#include "bridge/upstream_handler.h"
#include "comm/active_object.h"
#include "core/resource_data.h"
#include "hmx/inputregions/ihmx_inputregions.h"
#include "hmx/iregionconfigurations.h"
#include "kelo/gauge.h"
#include "kelo/optional.h"
#include "kelo/supervisor/kept_state.h"
#include "kelo/toluglobals.h"
#include "service_tracker.h"

namespace hmx {

// Limits of what the bridge keeps and has in progress. Thread: any (a value).
struct RegionLimits {
    std::size_t configurations = 1024;               // kept, or in progress
    std::size_t bytes = std::size_t{6} << 20U;       // the memory of these; what is in progress counts twice
    std::size_t changes = 256;                       // sent and not answered, or waiting to be sent
    std::size_t sentAgain = 16;                      // of those that are sent again when the input manager returns: not answered
    std::size_t bytesSentAgain = 256U << 10U;        // the same in bytes; a larger one goes alone
    std::size_t freedBytes = std::size_t{2} << 20U;  // freed before memory is returned to the system
    std::chrono::milliseconds patience{10'000};      // until the caller of a change gets 504
};

// Keeps the configurations that the input manager has accepted; they are not read back from it. The operations and
// `cancelRequest` post their work to the worker and return at once; the operations return the request's key. Thread: the bridge's
// worker; operations and `cancelRequest`: any.
class InputBridge final : public kelo::hmx::IRegionconfigurations {
    using Object = kelo::hmx::RegionconfigurationObject;
    using Clock = std::chrono::steady_clock;

    enum class Purpose : std::uint8_t {
        asked,      // by a client
        clearing,   // of the regions of another configuration with the same id
        sentAgain,  // because the input manager has been away
    };
    enum class Outcome : std::uint8_t { accepted, refused, unknown };

    // One change on its way to the input manager. Thread: the bridge's worker.
    struct Change {
        RegionAddress address;
        std::shared_ptr<Object> object;  // the new state; not in the cache yet
        const char* operation;           // for texts
        bool isRemoval = false;          // once accepted, erase the object from the cache instead of adding it
        Purpose purpose = Purpose::asked;
        RequestKey key{};          // of the caller; null if there is none
        std::uint64_t number = 0;  // order of sending
        Clock::time_point due{};   // when the caller gets 504
        unsigned round = 0;        // of sending again
        std::size_t bytes = 0;     // of memory; set if it is sent again
        bool isAccepted = false;
        bool isDecided = false;
        UpstreamRequest upstream{};  // none if the request is one-shot
    };
    // Receives the input manager's answers. Thread: the bridge's worker.
    struct ChangeReceiver {
        using Value = std::nullptr_t;
        void onNext(const Value&) const;
        void onError(const kelo::Response& response) const;
        void onCompleted() const;

        InputBridge* bridge;
        std::shared_ptr<Change> change;
    };

public:
    using CUpdateInputRegionsResponseHandler = UpstreamHandler<ChangeReceiver>;

    // The form of what outlives the bridge.
    static kelo::supervisor::KeptState::Form keptForm(const RegionLimits& limits = {});

    // Shares ownership of the worker, and must outlive what is queued there. `kept`: where the configurations of an earlier
    // bridge are, and where those of this one are kept; null: they end with the bridge.
    explicit InputBridge(std::shared_ptr<comm::ActiveObject> worker, const RegionLimits& limits = {},
                         std::unique_ptr<kelo::supervisor::KeptState> kept = nullptr);

    // Sends through this API from now on, beginning with everything that is kept. Changes in progress keep the API that they were
    // sent with.
    void setApi(const ServiceApi& api);
    // Stops sending. No effect if nothing is attached.
    void resetApi();

    // Asks the input manager to clear the configuration's regions. `fields` is ignored.
    void* deleteRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<std::nullptr_t>>&& handler, const std::UUID& id,
                                          const kelo::optional<std::vector<std::string>>& fields) override;
    // Replaces a configuration of the same display, HMI and subcomponent, if there is one.
    void* insertRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<kelo::url>>&& handler,
                                          const kelo::hmx::InsertRegionconfigurationObject& insert) override;
    void* retrieveRegionconfigurationObject(
        std::unique_ptr<kelo::IResponseHandler<kelo::hmx::RegionconfigurationObject>>&& handler, const std::UUID& id,
        const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    void* updateRegionconfigurationObject(std::unique_ptr<kelo::IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                          const kelo::hmx::UpdateRegionconfigurationObject& update) override;
    // `key`: the result of an operation. Its handler gets no further event; ignored if the request is over. A change that has
    // been sent is not revoked.
    void cancelRequest(void* key) override;

private:
    using Pending = PendingRequests<std::shared_ptr<Change>, kelo::url, std::nullptr_t>;
    using ChangeRequest = std::unique_ptr<Pending::Request>;

    // What is known about one id, in addition to its object in the cache. Thread: the bridge's worker.
    struct Configuration {
        std::uint64_t decidedBy = 0;           // the change that the cache reflects
        std::uint64_t insertedBy = 0;          // the change that added the object
        std::uint64_t lastUnknown = 0;         // the last change with an unknown outcome
        std::size_t underWay = 0;              // changes that were sent and not answered
        std::unique_ptr<RegionAddress> place;  // where the last change was sent
        bool isClearing = false;               // changes wait until `place` is cleared
        bool isToBeSentAgain = false;
        const Object* keptObject = nullptr;  // what outlives the bridge: the object, which is in the cache, too,
        bool isPlaceKept = false;            // or only the place

        bool isDoubtful() const noexcept { return lastUnknown > decidedBy; }
    };
    using Configurations = std::unordered_map<std::UUID, Configuration>;

    // The memory of configurations. Thread: the bridge's worker.
    struct Memory {
        std::size_t bytes = 0;
        std::size_t freed = 0;  // since memory was last returned to the system
        kelo::Gauge gauge{"regionBytes"};
    };
    // An object that is counted as long as somebody holds it. Thread: the bridge's worker.
    struct Charged;

    // Progress of sending again after the input manager's return. Thread: the bridge's worker.
    struct Round {
        unsigned number = 0;
        std::deque<std::UUID> left{};
        std::size_t sent = 0, accepted = 0, refused = 0;
        std::size_t underWay = 0, bytesUnderWay = 0;
        bool isSending = false;
    };

    std::shared_ptr<Object> charged(Object&& object);
    // Sends a change, or refuses it with the reason.
    template <class Result>
    void send(RequestKey key, std::unique_ptr<kelo::IResponseHandler<Result>> handler, Change change);
    bool hasMemory() const;
    void submit(ChangeRequest request);
    // Without a request: a change that the bridge makes itself.
    void transmit(const std::shared_ptr<Change>& change, ChangeRequest request = nullptr);
    void accepted(Change& change);
    void decide(Change& change, Outcome outcome, const kelo::Response* response = nullptr);
    void apply(const Change& change, const std::shared_ptr<Object>& object, Configuration& configuration, Outcome outcome);
    void takeOver();
    bool takeOver(const std::UUID& id, KeptRegion&& region);
    bool keepAccepted(const Change& change);
    bool keep(const std::UUID& id, Configuration& configuration, const std::shared_ptr<Object>& object, bool mayBeThere);
    bool write(const std::UUID& id, const RegionAddress& place, const std::shared_ptr<Object>& object);
    void forgetIfNothingIsLeft(const std::UUID& id);
    void endClearing(const std::UUID& id, Outcome outcome, const kelo::Response* response);
    void sendAgain(const std::UUID& id);
    void continueSendingAgain();
    void endSendingAgain(const Change& change, Outcome outcome);
    void setAlarm(Clock::time_point due);
    void endThoseDue();
    void showGauges();

    const std::shared_ptr<comm::ActiveObject> worker_;
    const RegionLimits limits_;
    const std::unique_ptr<kelo::supervisor::KeptState> store_;  // may be null
    kelo::Gauge kept_{"regionConfigurations"};
    kelo::Gauge changesUnderWay_{"regionChangesUnderWay"};
    kelo::Gauge refusals_{"regionChangesRefused"};
    Memory memory_;
    Attachment<kelo::hmx::inputregions::IHmx_inputregions> upstream_;
    Configurations configurations_;
    kelo::tolu::ToluResourceData<Object> cache_;
    std::uint64_t lastNumber_ = 0;
    std::map<std::uint64_t, std::shared_ptr<Change>> underWay_;  // by number
    std::deque<ChangeRequest> waiting_;                          // until a place is cleared
    Round round_;
    bool isAlarmSet_ = false;
    Pending pending_;
};

}  // namespace hmx
