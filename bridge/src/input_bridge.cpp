// The cache holds what the input manager has accepted and nothing else. A change is made on an object of its own, sent, and put
// into the cache (or its object erased) when the answer says yes; the caller hears of it before the listeners do. Objects in the
// cache are never changed: readers share them.
//
// Several changes of one configuration may be under way at a time; each is applied when its own answer comes, once, whatever
// happened to the cache in between. So a configuration that is deleted and, before the answer, updated again is there in the end,
// as it is upstream.
//
// A client that cancels a change, or dies, is not told of the outcome. The change itself goes on: what has been sent may have
// been done, and a cache that did not learn of it would deny a configuration that exists.
#include "bridge/input_bridge.h"

#include <cassert>
#include <utility>

#include "bridge/common_texts.h"
#include "hmx/inputregions/hmx_inputregions_client.h"
#include "kelo/func_call_event.h"
#include "tracing/channel.h"

namespace hmx {

using kelo::IResponseHandler;
using kelo::Response;
using kelo::hmx::HapticAndInputInfoPerHMIType;
using kelo::hmx::RegionconfigurationObject;

namespace {

const tracing::Channel channel{"HMX_TOLU_BRIDGE_REGIONS"};

// A new object with the regions given and all else as in the old one.
std::shared_ptr<RegionconfigurationObject> withRegions(const RegionconfigurationObject& object,
                                                       std::shared_ptr<HapticAndInputInfoPerHMIType> regions) {
    auto copy = std::make_shared<RegionconfigurationObject>(object);
    copy->regions = std::move(regions);
    return copy;
}

}  // namespace

void InputBridge::ChangeReceiver::onNext(const Value&) const {
    bridge->accepted(key, *change);
}
void InputBridge::ChangeReceiver::onError(const Response& response) const {
    bridge->pending_.fail(key, response);
}
void InputBridge::ChangeReceiver::onCompleted() const {
    bridge->pending_.complete(key);
}

InputBridge::InputBridge(std::shared_ptr<comm::ActiveObject> worker) : worker_{std::move(worker)} {}

void InputBridge::setApi(const ServiceApi& api) {
    assert(worker_->isCurrentThread());
    upstream_.set<kelo::hmx::inputregions::Hmx_inputregionsClient>(api);
}

void InputBridge::resetApi() {
    assert(worker_->isCurrentThread());
    upstream_.reset();
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
        auto object = std::make_shared<Object>(id, regionConfigurationUri(id));
        object->name = regionConfigurationName(address);
        object->subComponent = insert.subComponent;
        object->display = insert.display;
        object->hmi = insert.hmi;
        object->regions = insert.regions;
        send(key, std::move(handler), {address, std::move(object)},
             "InputBridge::insertRegionconfigurationObject no input client available");
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
        send(key, std::move(handler), {address, withRegions(*stored, update.regions)},
             "InputBridge::updateRegionconfigurationObject no input client available");
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
        send(key, std::move(handler),
             {address, withRegions(*stored, std::make_shared<HapticAndInputInfoPerHMIType>()), /*isRemoval=*/true},
             "InputBridge::deleteRegionconfigurationObject no input client available");
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
        } else {
            cache_.cancel(key);
        }
    });
}

template <class Result>
void InputBridge::send(RequestKey key, std::unique_ptr<IResponseHandler<Result>> handler, Change change, const char* noClient) {
    if (!upstream_) {
        handler->onError(noClientResponse(channel, noClient));
        return;
    }
    const bool oneShot = handler->isOneShot();
    const auto sent = std::make_shared<Change>(std::move(change));
    pending_.start(key, std::make_unique<Pending::Request>(std::move(handler), sent), upstream_.api(), [&] {
        void* const handle = upstream_.client().updateInputRegions(
            std::make_unique<CUpdateInputRegionsResponseHandler>(*worker_, oneShot, ChangeReceiver{this, key, sent}),
            sent->address.display, sent->address.hmi, toUpstreamRegions(*sent->object));
        if (!oneShot) sent->upstream = {upstream_.api(), handle};
        return handle;
    });
}

void InputBridge::accepted(RequestKey key, Change& change) {
    if (std::exchange(change.isAccepted, true)) return;
    if (pending_.context(key) == nullptr) change.upstream.cancel();
    const std::UUID& id = change.object->id;
    if (change.isRemoval) {
        pending_.next<std::nullptr_t>(key, [] { return nullptr; });
        if (!cache_.erase(id)) tracing::logC(channel, unknownIdLevel, "No entry for id");
    } else {
        pending_.next<kelo::url>(key, [&] { return change.object->uri; });
        cache_.put(id, change.object);
    }
}

}  // namespace hmx
