// Upstream identifies a popup by its display and its name; here it has an id made from both. They cannot be computed from the id,
// so an id can be resolved only after an earlier answer contained the popup.
//
// A list is filtered twice: upstream by display and by name or states, which is why these query values are not applied to the
// answer again, and here by all other query values.
#include "bridge/popup_bridge.h"

#include <cassert>
#include <type_traits>
#include <utility>

#include "bridge/common_texts.h"
#include "core/list_page.h"
#include "hmx/popups/hmx_popups_client.h"
#include "hmx/query.h"
#include "hmx/refusals.h"
#include "kelo/func_call_event.h"
#include "kelo/tolu/transform.h"
#include "tracing/channel.h"

namespace hmx {

using kelo::IResponseHandler;
using kelo::Response;
using kelo::hmx::PopupObject;
using kelo::hmx::PopupObjectListPage;
using kelo::hmx::popups::Popup;
using kelo::toluglobals::ToluParams;

namespace {

const tracing::Channel channel{"HMX_TOLU_BRIDGE_POPUPS"};

// Two popups have the same id: it stands for the one that was seen last.
void reportTie(const PopupKey& known, const PopupKey& fresh) {
    tracing::logCV(channel, errorLevel, "PopupBridge popup: %s on display: %s has the id of popup: %s on display: %s",
                   fresh.name.c_str(), fresh.display.c_str(), known.name.c_str(), known.display.c_str());
}

}  // namespace

void PopupBridge::PopupsReceiver::onNext(const Value& popups) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, progressLevel, "PopupBridge::GetPopups::onNext received update on display: %s ",
                   details->popup.display.c_str());
    bridge->pending_.next<PopupObjectListPage>(key, [&] {
        std::vector<std::shared_ptr<PopupObject>> objects;
        objects.reserve(popups.size());
        for (const Popup& popup : popups) objects.push_back(std::make_shared<PopupObject>(bridge->toObject(*details, popup)));
        return kelo::tolu::cutPage(std::move(objects), details->params,
                                   {"display", "name", "active", "isFullscreen", "requested", "slot", "visible"});
    });
}

void PopupBridge::PopupsReceiver::onError(const Response& response) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, errorLevel, "PopupBridge::GetPopups::onError received error on display: %s error: %s",
                   details->popup.display.c_str(), response.toString().c_str());
    bridge->pending_.fail(key, response);
}

void PopupBridge::PopupReceiver::onNext(const Value& popup) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, progressLevel, "PopupBridge::GetPopup::onNext received update for popup: %s on display: %s ",
                   popup.name.c_str(), details->popup.display.c_str());
    const bool isElement = bridge->pending_.next<PopupObject>(
        key, [&] { return kelo::tolu::transformElement(bridge->toObject(*details, popup), details->params); });
    if (isElement) return;
    bridge->pending_.next<PopupObjectListPage>(key, [&] {
        return kelo::tolu::cutPage(std::vector{std::make_shared<PopupObject>(bridge->toObject(*details, popup))}, details->params,
                                   {"display", "name"});
    });
}

void PopupBridge::PopupReceiver::onError(const Response& response) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, errorLevel, "PopupBridge::GetPopup::onError received error on display: %s error: %s",
                   details->popup.display.c_str(), response.toString().c_str());
    bridge->pending_.fail(key, response);
}

void PopupBridge::UpdateReceiver::onNext(const Value& popup) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, progressLevel, "PopupBridge::UpdatePopupState::onNext received update for popup: %s with uri: %s ",
                   popup.name.c_str(), details->uri.toString().c_str());
    bridge->pending_.next<kelo::url>(key, [&] { return details->uri; });
}

void PopupBridge::UpdateReceiver::onError(const Response& response) const {
    const RequestDetails* const details = bridge->pending_.context(key);
    if (details == nullptr) return;
    tracing::logCV(channel, errorLevel, "PopupBridge::UpdatePopupState::onError received error for uri %s error: %s",
                   details->uri.toString().c_str(), response.toString().c_str());
    bridge->pending_.fail(key, response);
}

void PopupBridge::Receiver::onCompleted() const {
    bridge->pending_.complete(key);
}

PopupBridge::PopupBridge(std::shared_ptr<comm::ActiveObject> worker)
    : worker_{std::move(worker)}, ids_{&popupIdName, &PopupObject::elementUri, &reportTie} {}

void PopupBridge::setApi(const ServiceApi& api) {
    assert(worker_->isCurrentThread());
    upstream_.set<kelo::hmx::popups::Hmx_popupsClient>(api);
}

void PopupBridge::resetApi() {
    assert(worker_->isCurrentThread());
    upstream_.reset();
}

void* PopupBridge::retrievePopupObject(std::unique_ptr<IResponseHandler<PopupObject>>&& handler, const std::UUID& id,
                                       const kelo::optional<ToluParams>& params) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), id, params = params]() mutable {
        tracing::logCV(channel, progressLevel, "PopupBridge::retrievePopupObject id : %s ", IdText{id}.c_str());
        const PopupKey* const popup = ids_.find(id);
        if (popup == nullptr) {
            tracing::logCV(channel, unknownIdLevel,
                           "PopupBridge::retrievePopupObject id : %s for popup is not known on hmx brigde", IdText{id}.c_str());
            handler->onError(Response::createErrorResponse(404, refusals::popupUnknown));
            return;
        }
        tracing::logCV(channel, progressLevel,
                       "PopupBridge::retrievePopupObject requesting popup via swagger for display: %s , name:%s ",
                       popup->display.c_str(), popup->name.c_str());
        start<GetPopup>(key, std::move(handler), {*popup, std::move(params), {}},
                        "PopupBridge::retrievePopupObject no popup client available", [popup](auto& client, auto upstream) {
                            return client.getPopup(std::move(upstream), popup->display, popup->name);
                        });
    });
    return key;
}

void* PopupBridge::retrievePopupObjects(std::unique_ptr<IResponseHandler<PopupObjectListPage>>&& handler,
                                        const kelo::optional<ToluParams>& params) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), params = params]() mutable {
        constexpr char noClient[] = "PopupBridge::retrievePopupObjects no popup client available";
        tracing::logC(channel, progressLevel, "PopupBridge::retrievePopupObjects");
        const std::string* const display = params ? restriction(params->values, "display") : nullptr;
        if (display == nullptr) {
            tracing::logC(channel, errorLevel, "PopupBridge::retrievePopupObjects display has to be specified in tolu params");
            handler->onError(Response::createErrorResponse(400, refusals::popupsNeedDisplay));
            return;
        }
        const std::string* const name = restriction(params->values, "name");
        if (name != nullptr) {
            tracing::logCV(channel, progressLevel,
                           "PopupBridge::retrievePopupObjects requesting popup via swagger for display: %s , name:%s ",
                           display->c_str(), name->c_str());
            const PopupKey popup{*display, *name};
            start<GetPopup>(key, std::move(handler), {popup, std::move(params), {}}, noClient,
                            [&popup](auto& client, auto upstream) {
                                return client.getPopup(std::move(upstream), popup.display, popup.name);
                            });
            return;
        }
        tracing::logCV(channel, progressLevel,
                       "PopupBridge::retrievePopupObjects requesting popups via swagger for display: %s  ", display->c_str());
        const PopupKey all{*display, {}};
        const auto filter = toStateFilter(params->values);
        start<GetPopups>(
            key, std::move(handler), {all, std::move(params), {}}, noClient,
            [&all, &filter](auto& client, auto upstream) { return client.getPopups(std::move(upstream), all.display, filter); });
    });
    return key;
}

void* PopupBridge::updatePopupObject(std::unique_ptr<IResponseHandler<kelo::url>>&& handler, const std::UUID& id,
                                     const kelo::hmx::UpdatePopupObject& update) {
    const RequestKey key = newRequestKey();
    kelo::postBrief(*worker_, [this, key, handler = std::move(handler), id, update]() mutable {
        tracing::logCV(channel, progressLevel, "PopupBridge::updatePopupObject id : %s ", IdText{id}.c_str());
        const PopupKey* const popup = ids_.find(id);
        if (popup == nullptr) {
            tracing::logCV(channel, unknownIdLevel, "PopupBridge::updatePopupObject id : %s for popup is not known on hmx brigde",
                           IdText{id}.c_str());
            handler->onError(Response::createErrorResponse(404, "[PopupBridge::updatePopupObject: popup id not found]"));
            return;
        }
        tracing::logCV(channel, progressLevel,
                       "PopupBridge::retrievePopupObject updating popup via swagger for display: %s , name:%s ",
                       popup->display.c_str(), popup->name.c_str());
        start<UpdatePopupState>(
            key, std::move(handler), {*popup, {}, PopupObject::elementUri(id)},
            "PopupBridge::updatePopupObject no popup client available", [popup, &update](auto& client, auto upstream) {
                return client.updatePopupState(std::move(upstream), popup->display, popup->name, toStateUpdate(update));
            });
    });
    return key;
}

void PopupBridge::cancelRequest(void* key) {
    kelo::postBrief(*worker_, [this, key] { pending_.cancel(key); });
}

template <class Upstream, class Result, class Ask>
void PopupBridge::start(RequestKey key, std::unique_ptr<IResponseHandler<Result>> handler, RequestDetails details,
                        const char* noClient, Ask&& ask) {
    if (!upstream_) {
        handler->onError(noClientResponse(channel, noClient));
        return;
    }
    const bool isOfAll = std::is_same_v<Upstream, GetPopups>;
    // With an empty name, the upstream path would be that of something else.
    if (details.popup.display.empty() || (details.popup.name.empty() && !isOfAll)) {
        handler->onError(Response::createErrorResponse(404, refusals::popupNameless));
        return;
    }
    auto upstream = std::make_unique<Upstream>(*worker_, handler->isOneShot(), handler->account(),
                                               typename Upstream::ReceiverType{{this, key}});
    pending_.start(key, std::make_unique<Pending::Request>(std::move(handler), std::move(details)), upstream_.api(),
                   [&] { return ask(upstream_.client(), std::move(upstream)); });
}

PopupObject PopupBridge::toObject(const RequestDetails& details, const Popup& popup) {
    const std::string& display = details.popup.display;
    return toPopupObject(display, popup, ids_.record(PopupKeyView{display, popup.name}));
}

}  // namespace hmx
