// "/hmx" shows what the input manager has. The input manager cannot be asked for that, so the cache is built from its answers: it
// contains what has been accepted, and nothing else. A change gets an object of its own and is sent at once. When it has been
// accepted, the object is put into the cache (or erased from it). The caller is told before the listeners are. Objects in the
// cache are never modified: readers share them.
//
// Order. The input manager gets changes in the order of sending, so of the accepted changes of one configuration, the one that
// was sent last determines what it has. Its answers may come in any order. Each change has a number, and an accept that comes
// after the accept of a later change of the same configuration is reported only to its caller. A refusal changes nothing: updates
// A and B, with B refused, leave A, whichever answer comes first. A deletion is a change like any other: an update sent after it
// brings the configuration back, one sent before it does not.
//
// What was sent is carried through. It may be carried out at any time, so the answer still matters if the client cancels, dies or
// has got 504, and however long it takes: the request upstream has no deadline; the caller's deadline is kept here. The number of
// unanswered changes is limited; above the limit, a change is refused and not sent.
//
// When the input manager is lost, nobody knows which of the unanswered changes it has carried out, and it may return with nothing
// or with everything that it had. So when it returns, each configuration in the cache is sent again, in the order of insertion, a
// few at a time. If a change with an unknown outcome has left no object in the cache, its regions are cleared. After that, the
// input manager has what "/hmx" has shown all the time. If a client changes a configuration meanwhile, that configuration is sent
// again first, ahead of its turn, and then the change; so the change wins. What is refused now leaves the cache.
//
// One id, two places. The id is made of display, HMI and subcomponent without separators, so two different places may have the
// same id. A configuration for the second place replaces that of the first, whose regions must not stay: they are cleared first,
// and the new configuration is sent only after that has been accepted. Until then, changes with that id wait in the order of
// arrival. If the clearing is refused, the change that caused it is refused too, and nothing has changed. If the new
// configuration is refused, neither is left: the old one is gone upstream.
//
// The end of the bridge. Clients have been told what is in the cache, and the input manager may live on, so both must find it
// again. Each configuration has a record in a store that outlives the process. The record has the object, or, if none is shown
// but the input manager may have regions, the place alone. It is written before it is needed: the place before the first change
// is sent there, the object before its caller is told that it has been accepted. The next bridge begins with what the records
// say, as if the input manager had been lost: it sends the objects again and clears the places that have none. Hence what a
// caller was told is there is there, what a caller was told is gone is gone, and of a change whose caller was told nothing, one
// or the other.
//
// Memory. An object counts from its creation until nobody holds it; what would exceed the limit is refused with 507. When much
// has been freed, it is returned to the system, on the worker but not while a request is handled.
#include "bridge/input_bridge.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "bridge/common_texts.h"
#include "bridge/footprint.h"
#include "core/documents.h"
#include "hmx/inputregions/hmx_inputregions_client.h"
#include "hmx/inputregions/service_path.h"
#include "kelo/func_call_event.h"
#include "kelo/std/error_storage.h"
#include "tracing/channel.h"
#include "util/memory.h"

namespace hmx {

using kelo::IResponseHandler;
using kelo::Response;
using kelo::hmx::HapticAndInputInfoPerHMIType;
using kelo::hmx::RegionconfigurationObject;

namespace {

const tracing::Channel channel{"HMX_TOLU_BRIDGE_REGIONS"};

const kelo::MimeType keptMimeType{kelo::mimetypes::MimeTypeID::ixobin};

constexpr std::uint16_t serviceUnavailable = 503;
constexpr std::uint16_t gatewayTimeout = 504;
constexpr std::uint16_t insufficientStorage = 507;

// A copy with other regions.
RegionconfigurationObject withRegions(const RegionconfigurationObject& object,
                                      std::shared_ptr<HapticAndInputInfoPerHMIType> regions) {
    RegionconfigurationObject copy{object};
    copy.regions = std::move(regions);
    return copy;
}

// A configuration of that id and place without regions.
std::shared_ptr<RegionconfigurationObject> cleared(const std::UUID& id, const RegionAddress& address) {
    auto object = std::make_shared<RegionconfigurationObject>(id, regionConfigurationUri(id));
    if (!address.subComponent.empty()) object->subComponent = address.subComponent;
    return object;
}

// Whether the error leaves the outcome of a change unknown. The runtime uses these words.
bool leavesOutcomeOpen(const Response& response) {
    const std::string_view reason = response.reason();
    return response.status() == serviceUnavailable && (reason.ends_with("outcome unknown") || reason.ends_with("not sent"));
}

Response refusal(std::uint16_t status, const char* operation, const char* reason) {
    tracing::logCV(channel, errorLevel, "%s %s", operation, reason);
    return Response::createErrorResponse(status, "[" + std::string{operation} + " " + reason + ", request not sent]");
}

}  // namespace

struct InputBridge::Charged final : Object {
    Charged(Object&& object, Memory& memory) : Object{std::move(object)}, memory_{memory}, bytes_{footprint<Object>(*this)} {
        memory_.bytes += bytes_;
        memory_.gauge.add(static_cast<std::int64_t>(bytes_));
    }
    Charged(const Charged&) = delete;
    Charged& operator=(const Charged&) = delete;
    ~Charged() override {
        memory_.bytes -= bytes_;
        memory_.freed += bytes_;
        memory_.gauge.add(-static_cast<std::int64_t>(bytes_));
    }

private:
    Memory& memory_;
    const std::size_t bytes_;
};

void InputBridge::ChangeReceiver::onNext(const Value&) const {
    const auto kept = change;
    bridge->accepted(*kept);
}
void InputBridge::ChangeReceiver::onError(const Response& response) const {
    const auto kept = change;
    if (!kept->isDecided) {
        tracing::logCV(channel, errorLevel,
                       "InputBridge::CUpdateInputRegionsResponseHandler::onError received error for uri %s error: %s",
                       kept->object->uri.toString().c_str(), response.toString().c_str());
    }
    bridge->pending_.fail(kept->key, response);
    bridge->decide(*kept, leavesOutcomeOpen(response) ? Outcome::unknown : Outcome::refused, &response);
}
void InputBridge::ChangeReceiver::onCompleted() const {
    const auto kept = change;
    bridge->pending_.complete(kept->key);
    bridge->decide(*kept, Outcome::refused);
}

kelo::supervisor::KeptState::Form InputBridge::keptForm(const RegionLimits& limits) {
    constexpr std::size_t placeAtMost = 512;  // of a record, beyond its object
    return {.name = "hmx-regions", .version = 1, .bytes = 2 * limits.bytes + limits.configurations * placeAtMost};
}

InputBridge::InputBridge(std::shared_ptr<comm::ActiveObject> worker, const RegionLimits& limits,
                         std::unique_ptr<kelo::supervisor::KeptState> kept)
    : worker_{std::move(worker)}, limits_{limits}, store_{std::move(kept)} {
    if (store_ != nullptr) takeOver();
}

// Begins with what an earlier bridge has left. All of it is sent when there is an input manager.
void InputBridge::takeOver() {
    std::vector<std::UUID> useless;
    store_->visit([&](const std::UUID& id, std::span<const std::uint8_t> bytes) {
        KeptRegion region;
        const bool isRead = !kelo::readDocument(bytes, keptMimeType, kelo::ResultView::of(region));
        // An object may take a little more memory than it did before, and its client was told that it is there.
        if (isRead && configurations_.size() < limits_.configurations && memory_.bytes <= 2 * limits_.bytes &&
            takeOver(id, std::move(region)))
            return;
        tracing::logCV(channel, errorLevel, "InputBridge::InputBridge a region configuration is dropped: %s",
                       isRead ? "it is not one of ours, or too much" : std::ErrorStorage::takeReason().c_str());
        useless.push_back(id);
    });
    for (const std::UUID& id : useless) (void)store_->erase(id);
    showGauges();
}

bool InputBridge::takeOver(const std::UUID& id, KeptRegion&& region) {
    const RegionAddress place{region.display, region.hmi, region.subComponent};
    if (regionConfigurationId(place) != id) return false;
    const std::shared_ptr<Object> object = region.object ? charged(std::move(**region.object)) : nullptr;
    if (object != nullptr && (object->id != id || !object->display || !object->hmi || RegionAddress{*object} != place))
        return false;
    Configuration& configuration = configurations_[id];
    configuration.place = std::make_unique<RegionAddress>(place);
    configuration.keptObject = object.get();
    configuration.isPlaceKept = object == nullptr;
    if (object == nullptr) {
        configuration.lastUnknown = ++lastNumber_;
    } else {
        configuration.decidedBy = configuration.insertedBy = ++lastNumber_;
        cache_.put(id, object);
    }
    return true;
}

void InputBridge::setApi(const ServiceApi& api) {
    assert(worker_->isCurrentThread());
    upstream_.set<kelo::hmx::inputregions::Hmx_inputregionsClient>(api);
    round_ = Round{.number = round_.number + 1};
    std::vector<std::pair<std::uint64_t, std::UUID>> order;
    for (auto& [id, configuration] : configurations_) {
        const bool isKept = cache_.find(id) != nullptr;
        configuration.isToBeSentAgain = isKept || configuration.isDoubtful();
        if (!configuration.isToBeSentAgain) continue;
        order.emplace_back(isKept ? configuration.insertedBy : configuration.lastUnknown, id);
    }
    std::sort(order.begin(), order.end());
    for (const auto& [number, id] : order) round_.left.push_back(id);
    continueSendingAgain();
}

void InputBridge::resetApi() {
    assert(worker_->isCurrentThread());
    upstream_.reset();
    round_.left.clear();
    for (auto& [id, configuration] : configurations_) configuration.isToBeSentAgain = false;
}

void* InputBridge::insertRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler,
                                                   const kelo::hmx::InsertRegionconfigurationObject& insert) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), insert]() mutable {
        const RegionAddress address{insert.display, insert.hmi, insert.subComponent};
        tracing::logCV(channel, progressLevel,
                       "InputBridge::insertRegionconfigurationObject display: %s hmi : %s subcomponent: %s ",
                       address.display.c_str(), address.hmi.c_str(), address.subComponent.c_str());
        const std::UUID id = regionConfigurationId(address);
        if (cache_.find(id) != nullptr) {
            tracing::logCV(
                channel, progressLevel,
                "InputBridge::insertRegionconfigurationObject for display: %s hmi : %s subcomponent: %s already exists",
                address.display.c_str(), address.hmi.c_str(), address.subComponent.c_str());
        }
        Object object{id, regionConfigurationUri(id)};
        object.name = regionConfigurationName(address);
        object.subComponent = insert.subComponent;
        object.display = insert.display;
        object.hmi = insert.hmi;
        object.regions = insert.regions;
        send(key, std::move(handler), {address, charged(std::move(object)), "InputBridge::insertRegionconfigurationObject"});
    });
    return key;
}

void* InputBridge::updateRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                                   const kelo::hmx::UpdateRegionconfigurationObject& update) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), id, update]() mutable {
        const std::shared_ptr<Object> stored = cache_.find(id);
        if (stored == nullptr) {
            tracing::logCV(channel, unknownIdLevel, "InputBridge::updateRegionconfigurationObject no object found for id : %s",
                           IdText{id}.c_str());
            handler->onError(
                Response::createErrorResponse(404, "[InputBridge::updateRegionconfigurationObject no object found for id]"));
            return;
        }
        const RegionAddress address{*stored};
        tracing::logCV(channel, progressLevel,
                       "InputBridge::updateRegionconfigurationObject for display: %s hmi : %s subcomponent: %s",
                       address.display.c_str(), address.hmi.c_str(), address.subComponent.c_str());
        send(key, std::move(handler),
             {address, charged(withRegions(*stored, update.regions)), "InputBridge::updateRegionconfigurationObject"});
    });
    return key;
}

void* InputBridge::deleteRegionconfigurationObject(std::unique_ptr<IResponseHandler<std::nullptr_t>>&& handler,
                                                   const std::UUID& id,
                                                   const kelo::optional<std::vector<std::string>>& /*fields*/) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), id]() mutable {
        const std::shared_ptr<Object> stored = cache_.find(id);
        if (stored == nullptr) {
            tracing::logCV(channel, unknownIdLevel, "InputBridge::deleteRegionconfigurationObject no object found for id : %s",
                           IdText{id}.c_str());
            handler->onError(
                Response::createErrorResponse(404, "[InputBridge::deleteRegionconfigurationObject no object found for id]"));
            return;
        }
        const RegionAddress address{*stored};
        tracing::logCV(channel, progressLevel,
                       "InputBridge::deleteRegionconfigurationObject for display: %s hmi : %s subcomponent: %s",
                       address.display.c_str(), address.hmi.c_str(), address.subComponent.c_str());
        auto empty = std::make_shared<Object>(withRegions(*stored, std::make_shared<HapticAndInputInfoPerHMIType>()));
        send(key, std::move(handler),
             {address, std::move(empty), "InputBridge::deleteRegionconfigurationObject", /*isRemoval=*/true});
    });
    return key;
}

void* InputBridge::retrieveRegionconfigurationObject(std::unique_ptr<IResponseHandler<Object>>&& handler, const std::UUID& id,
                                                     const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), id, params]() mutable {
        cache_.addListener(key, id, params, std::move(handler));
    });
    return key;
}

void InputBridge::cancelRequest(void* key) {
    kelo::postBrief(*worker_, [this, key] {
        if (const auto* const pending = pending_.context(key)) {
            const std::shared_ptr<const Change> change = *pending;
            pending_.abandon(key);
            if (change->isAccepted) change->upstream.cancel();
        } else if (std::erase_if(waiting_, [key](const ChangeRequest& request) { return request->context->key == key; }) == 0) {
            cache_.cancel(key);
        }
    });
}

std::shared_ptr<RegionconfigurationObject> InputBridge::charged(Object&& object) {
    return std::make_shared<Charged>(std::move(object), memory_);
}

template <class Result>
void InputBridge::send(RequestKey key, std::unique_ptr<IResponseHandler<Result>> handler, Change change) {
    const auto refuse = [&](std::uint16_t status, const char* reason) {
        refusals_.add(1);
        handler->onError(refusal(status, change.operation, reason));
        change.object.reset();
        showGauges();
    };
    const bool isKnown = configurations_.contains(change.object->id);
    if (!upstream_) {
        handler->onError(noClientResponse(channel, std::string{change.operation} + " no input client available"));
    } else if (underWay_.size() + waiting_.size() >= limits_.changes) {
        refuse(serviceUnavailable, "too many changes wait for the input manager");
    } else if (!change.isRemoval && !hasMemory()) {
        refuse(insufficientStorage, "the region configurations take too much memory");
    } else if (!isKnown && configurations_.size() >= limits_.configurations) {
        refuse(insufficientStorage, "too many region configurations");
    } else {
        change.key = key;
        change.due = Clock::now() + limits_.patience;
        setAlarm(change.due);
        submit(std::make_unique<Pending::Request>(std::move(handler), std::make_shared<Change>(std::move(change))));
    }
}

// Whether there is memory for the change that has been charged last. What is under way is there twice: it is encoded, too, until
// the input manager has read it.
bool InputBridge::hasMemory() const {
    if (memory_.bytes <= limits_.bytes / 2) return true;
    std::size_t bytes = memory_.bytes;
    for (const auto& [number, change] : underWay_) bytes += footprint(*change->object);
    return bytes <= limits_.bytes;
}

// Sends a client's change, or puts it where it has to wait.
void InputBridge::submit(ChangeRequest request) {
    const std::shared_ptr<Change> change = request->context;
    if (!upstream_) {
        request->fail(noClientResponse(channel, std::string{change->operation} + " no input client available"));
        return;
    }
    const std::UUID id = change->object->id;
    if (configurations_[id].isToBeSentAgain) sendAgain(id);  // first, so that the new change wins
    Configuration& configuration = configurations_[id];
    const bool isElsewhere = configuration.place != nullptr && *configuration.place != change->address;
    if (!configuration.isClearing && !isElsewhere) {
        transmit(change, std::move(request));
        return;
    }
    if (configuration.isClearing) {
        waiting_.push_back(std::move(request));
        return;
    }
    const RegionAddress old = *configuration.place;
    const auto clearing =
        std::make_shared<Change>(Change{old, cleared(id, old), change->operation, /*isRemoval=*/true, Purpose::clearing});
    waiting_.push_back(std::move(request));
    configuration.isClearing = true;
    tracing::logCV(
        channel, errorLevel,
        "%s display: %s hmi : %s subcomponent: %s has the id of display: %s hmi : %s subcomponent: %s, which is cleared",
        change->operation, change->address.display.c_str(), change->address.hmi.c_str(), change->address.subComponent.c_str(),
        old.display.c_str(), old.hmi.c_str(), old.subComponent.c_str());
    transmit(clearing);
}

// If something is thrown here, the change ends: nobody knows how far it got.
void InputBridge::transmit(const std::shared_ptr<Change>& change, ChangeRequest request) {
    const bool oneShot = request == nullptr || request->oneShot;
    // On nobody's account: while requests wait for room, those of different accounts overtake one another.
    const auto ask = [&] {
        void* const handle = upstream_.client().updateInputRegions(
            std::make_unique<CUpdateInputRegionsResponseHandler>(*worker_, oneShot, nullptr, ChangeReceiver{this, change}),
            change->address.display, change->address.hmi, toUpstreamRegions(*change->object));
        if (!oneShot) change->upstream = {upstream_.api(), handle};
        return handle;
    };
    try {
        Configuration& configuration = configurations_.at(change->object->id);
        if (configuration.place == nullptr || *configuration.place != change->address) {
            configuration.place = std::make_unique<RegionAddress>(change->address);
            configuration.isPlaceKept = false;
        }
        if (store_ != nullptr) keep(change->object->id, configuration, cache_.find(change->object->id), /*mayBeThere=*/true);
        change->number = ++lastNumber_;
        underWay_.emplace(change->number, change);
        ++configuration.underWay;
        if (request != nullptr) {
            pending_.start(change->key, std::move(request), upstream_.api(), ask);
        } else {
            ask();
        }
    } catch (...) {
        decide(*change, Outcome::unknown);
        throw;
    }
    showGauges();
}

void InputBridge::accepted(Change& change) {
    if (std::exchange(change.isAccepted, true)) return;
    if (pending_.context(change.key) == nullptr) change.upstream.cancel();
    std::exception_ptr fault;
    try {
        if (!keepAccepted(change)) {
            pending_.fail(change.key, Response::createErrorResponse(
                                          insufficientStorage, "[" + std::string{change.operation} +
                                                                   " done, but it would not outlive a restart of the bridge]"));
        } else if (change.isRemoval) {
            pending_.next<std::nullptr_t>(change.key, [] { return nullptr; });
        } else {
            pending_.next<kelo::url>(change.key, [&] { return change.object->uri; });
        }
    } catch (...) {
        fault = std::current_exception();  // a caller's error must not keep the cache from being updated
    }
    decide(change, Outcome::accepted);
    if (fault) std::rethrow_exception(fault);
}

// Called once, when the change's outcome is known or will never be.
void InputBridge::decide(Change& change, Outcome outcome, const Response* response) {
    if (std::exchange(change.isDecided, true)) return;
    const bool wasSent = underWay_.erase(change.number) > 0;
    const auto object = std::move(change.object);  // released now, even if the request stays open
    const std::UUID id = object->id;
    Configuration& configuration = configurations_.at(id);
    if (wasSent) --configuration.underWay;
    std::exception_ptr fault;
    const auto attempt = [&fault](auto step) {
        try {
            step();
        } catch (...) {
            if (!fault) fault = std::current_exception();
        }
    };
    attempt([&] { apply(change, object, configuration, outcome); });  // listeners may throw
    if (store_ != nullptr) {
        attempt([&] { keep(id, configuration, cache_.find(id), configuration.underWay > 0 || configuration.isDoubtful()); });
    }
    if (change.purpose == Purpose::clearing) endClearing(id, outcome, response);
    forgetIfNothingIsLeft(id);
    if (change.purpose == Purpose::sentAgain) {
        endSendingAgain(change, outcome);
        continueSendingAgain();
    }
    showGauges();
    if (fault) std::rethrow_exception(fault);
}

void InputBridge::apply(const Change& change, const std::shared_ptr<Object>& object, Configuration& configuration,
                        Outcome outcome) {
    if (outcome == Outcome::unknown) {
        configuration.lastUnknown = std::max(configuration.lastUnknown, change.number);
        return;
    }
    if (outcome == Outcome::refused && change.purpose != Purpose::sentAgain) return;
    if (change.number < configuration.decidedBy) return;  // a later change has been decided
    configuration.decidedBy = change.number;
    const std::UUID& id = object->id;
    if (outcome == Outcome::accepted && !change.isRemoval) {
        if (cache_.find(id) == nullptr) configuration.insertedBy = change.number;
        cache_.put(id, object);
    } else if (!cache_.erase(id) && change.purpose == Purpose::asked) {
        tracing::logC(channel, unknownIdLevel, "No entry for id");
    }
}

// Writes the state that an accepted change leads to, unless a later one has been decided. False if that failed.
bool InputBridge::keepAccepted(const Change& change) {
    if (store_ == nullptr || change.isDecided) return true;
    const std::UUID id = change.object->id;
    Configuration& configuration = configurations_.at(id);
    if (change.number < configuration.decidedBy) return true;
    const bool mayOthersBeThere = configuration.underWay > 1 || configuration.lastUnknown > change.number;
    return keep(id, configuration, change.isRemoval ? nullptr : change.object, mayOthersBeThere);
}

// Brings the record of a configuration up to date. `mayBeThere`: whether the input manager may have regions if there is no
// object. False if that failed; then there is no record, since an old one would be worse.
bool InputBridge::keep(const std::UUID& id, Configuration& configuration, const std::shared_ptr<Object>& object,
                       bool mayBeThere) {
    const bool isPlace = object == nullptr && mayBeThere && configuration.place != nullptr;
    if (configuration.keptObject == object.get() && configuration.isPlaceKept == isPlace) return true;
    const bool isDone = object != nullptr ? write(id, RegionAddress{*object}, object)
                        : isPlace         ? write(id, *configuration.place, nullptr)
                                          : store_->erase(id);
    if (!isDone) {
        tracing::logCV(channel, failureLevel, "InputBridge::keep %s is not kept for a restart: %s",
                       regionConfigurationUri(id).toString().c_str(), std::strerror(errno));
        (void)store_->erase(id);
    }
    configuration.keptObject = isDone ? object.get() : nullptr;
    configuration.isPlaceKept = isDone && isPlace;
    return isDone;
}

bool InputBridge::write(const std::UUID& id, const RegionAddress& place, const std::shared_ptr<Object>& object) {
    KeptRegion region{place.display, place.hmi, place.subComponent, {}};
    if (object != nullptr) region.object = object;
    util::ByteBufferWriter document;
    return !kelo::writeDocument(document, keptMimeType, kelo::BodyView::of(region)) && store_->put(id, document.bytes());
}

void InputBridge::forgetIfNothingIsLeft(const std::UUID& id) {
    const auto found = configurations_.find(id);
    if (found == configurations_.end()) return;
    const Configuration& configuration = found->second;
    const bool isBusy = configuration.underWay > 0 || configuration.isClearing || configuration.isToBeSentAgain;
    if (!isBusy && !configuration.isDoubtful() && cache_.find(id) == nullptr) configurations_.erase(found);
}

// Continues the waiting changes; the first one, for which the place was to be cleared, only if that succeeded.
void InputBridge::endClearing(const std::UUID& id, Outcome outcome, const Response* response) {
    Configuration& configuration = configurations_.at(id);
    configuration.isClearing = false;
    if (outcome == Outcome::accepted) configuration.place.reset();
    std::deque<ChangeRequest> ready;
    for (auto& request : waiting_) {
        if (request->context->object->id == id) ready.push_back(std::move(request));
    }
    std::erase(waiting_, nullptr);
    if (outcome != Outcome::accepted && !ready.empty()) {
        const ChangeRequest first = std::move(ready.front());
        ready.pop_front();
        first->fail(response != nullptr && outcome == Outcome::refused
                        ? *response
                        : refusal(serviceUnavailable, first->context->operation, "what has the same id cannot be cleared"));
    }
    for (auto& request : ready) submit(std::move(request));
}

void InputBridge::sendAgain(const std::UUID& id) {
    Configuration& configuration = configurations_.at(id);
    configuration.isToBeSentAgain = false;
    const auto kept = cache_.find(id);
    const RegionAddress address = kept != nullptr ? RegionAddress{*kept} : *configuration.place;
    const auto change = std::make_shared<Change>(Change{address, kept != nullptr ? kept : cleared(id, address),
                                                        "InputBridge::setApi", kept == nullptr, Purpose::sentAgain});
    change->round = round_.number;
    change->bytes = footprint(*change->object);
    ++round_.sent;
    ++round_.underWay;
    round_.bytesUnderWay += change->bytes;
    transmit(change);
}

void InputBridge::continueSendingAgain() {
    if (round_.isSending) return;
    round_.isSending = true;
    try {
        while (!round_.left.empty() && round_.underWay < limits_.sentAgain &&
               (round_.underWay == 0 || round_.bytesUnderWay < limits_.bytesSentAgain)) {
            const std::UUID id = round_.left.front();
            round_.left.pop_front();
            const auto found = configurations_.find(id);
            if (found != configurations_.end() && found->second.isToBeSentAgain) sendAgain(id);
        }
    } catch (...) {
        round_.isSending = false;
        throw;
    }
    round_.isSending = false;
    if (!round_.left.empty() || round_.underWay > 0 || round_.sent == 0) return;
    tracing::logCV(channel, startLevel,
                   "InputBridge::setApi sent %zu region configurations again: %zu accepted, %zu refused, %zu without an outcome",
                   round_.sent, round_.accepted, round_.refused, round_.sent - round_.accepted - round_.refused);
    round_.sent = 0;
}

void InputBridge::endSendingAgain(const Change& change, Outcome outcome) {
    if (change.round != round_.number) return;
    --round_.underWay;
    round_.bytesUnderWay -= change.bytes;
    if (outcome == Outcome::accepted) ++round_.accepted;
    if (outcome == Outcome::refused) ++round_.refused;
}

void InputBridge::setAlarm(Clock::time_point due) {
    if (isAlarmSet_) return;
    kelo::postAfter(*worker_, std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()), [this] {
        isAlarmSet_ = false;
        endThoseDue();
    });
    isAlarmSet_ = true;
}

// Tells callers whose time has expired. Changes that were sent go on; the others are dropped.
void InputBridge::endThoseDue() {
    const auto now = Clock::now();
    auto next = Clock::time_point::max();
    const auto isDue = [&](const Change& change) {
        if (change.due <= now) return true;
        next = std::min(next, change.due);
        return false;
    };
    const auto timeout = [&](const char* what) {
        return Response::createErrorResponse(gatewayTimeout, std::string{kelo::hmx::inputregions::servicePath} +
                                                                 ": no answer within " +
                                                                 std::to_string(limits_.patience.count()) + " ms, " + what);
    };
    for (const auto& [number, change] : underWay_) {
        if (change->key != nullptr && isDue(*change)) {
            change->due = Clock::time_point::max();
            pending_.fail(change->key, timeout("outcome unknown"));
        }
    }
    std::erase_if(waiting_, [&](const ChangeRequest& request) {
        if (!isDue(*request->context)) return false;
        request->fail(timeout("request not sent"));
        return true;
    });
    if (next != Clock::time_point::max()) setAlarm(next);
    showGauges();
}

// Also returns freed memory to the system when there is enough of it.
void InputBridge::showGauges() {
    kept_.set(static_cast<std::int64_t>(cache_.objects().size()));
    changesUnderWay_.set(static_cast<std::int64_t>(underWay_.size() + waiting_.size()));
    if (store_ != nullptr && store_->isWasteful()) {
        kelo::post(*worker_, [this] {
            if (store_->isWasteful()) store_->tidy();
        });
    }
    if (memory_.freed < limits_.freedBytes) return;
    kelo::post(*worker_, &util::returnFreedMemory);
    memory_.freed = 0;
}

}  // namespace hmx
