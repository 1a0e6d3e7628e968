// The path of a retrieve, for all three display-side bridges:
//
//     resource service's thread   operation: key, post
//     worker                      which element, or all -> client stub -> upstream
//     thread of the API           upstream handler: copies the answer and posts it, unless this is the worker (here it always is)
//     worker                      convert, record ids, handler's onNext
//
// An id that a client asks for must have appeared in an earlier answer: only then can it be turned into the upstream name. If
// there is no client stub, a request for one element is answered here. A request for the whole resource is dropped, and the
// platform answers it.
//
// This file is included only by the bridges' sources. Each of them instantiates the template for its resource, after its own
// specialisation of DisplaySideScheme.
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <vector>

#include "bridge/common_texts.h"
#include "bridge/display_side_bridge.h"
#include "bridge/upstream_handler.h"
#include "core/list_page.h"
#include "kelo/func_call_event.h"
#include "kelo/tolu/transform.h"
#include "tracing/channel.h"

namespace hmx {

// What is specific to one resource's bridge. A specialisation has
//     list, listOfAll, listOfOne, listNoClient                                     the texts of retrieveList, in that order
//     element, elementUnknown, elementUnknownReason, elementOfOne, elementNoClient those of retrieveElement
//     channel                         where these texts, except the reason, are logged
//     Stub                            the type of the upstream client stub
//     getAll(client, handler)         sends the request for the whole resource
//     getOne(client, handler, key)    sends the request for one element
//     parameter                       the query value that names one element
//     wanted(dictionary, key)         sets `key` to the element that it names; false for the whole resource
//     idName(key)                     the name that the id of an element is made from
//     keyOf(one, asked)               the upstream key of the element in an answer; `asked`: the one that was asked for
//     forEach(all, visit)             calls visit(one, key) for each element, in upstream's order
// There must also be a function convert(one, identity, element), which overwrites everything in the element.
template <class Resource>
struct DisplaySideScheme;

// The texts about an upstream answer of one type: update, error and optionally completed.
template <class Answer>
struct DisplaySideAnswerTexts;

// A key as an argument for "%s" or "%i".
inline const char* printable(const std::string& key) noexcept {
    return key.c_str();
}
inline int printable(int key) noexcept {
    return key;
}

template <class Resource>
template <class Answer>
void DisplaySideBridge<Resource>::Receiver<Answer>::onNext(const Answer& answer) const {
    using Texts = DisplaySideAnswerTexts<Answer>;
    if (bridge->deliver(key, answer)) tracing::logC(DisplaySideScheme<Resource>::channel, progressLevel, Texts::update);
}

template <class Resource>
template <class Answer>
void DisplaySideBridge<Resource>::Receiver<Answer>::onError(const kelo::Response& response) const {
    using Texts = DisplaySideAnswerTexts<Answer>;
    const tracing::Channel& channel = DisplaySideScheme<Resource>::channel;
    if (bridge->pending_.context(key) == nullptr) return;
    if (channel.isEnabled(progressLevel)) tracing::logCV(channel, progressLevel, Texts::error, response.toString().c_str());
    bridge->pending_.fail(key, response);
}

template <class Resource>
template <class Answer>
void DisplaySideBridge<Resource>::Receiver<Answer>::onCompleted() const {
    using Texts = DisplaySideAnswerTexts<Answer>;
    if (bridge->pending_.context(key) == nullptr) return;
    if constexpr (requires { Texts::completed; }) {
        tracing::logC(DisplaySideScheme<Resource>::channel, progressLevel, Texts::completed);
    }
    bridge->pending_.complete(key);
}

template <class Resource>
DisplaySideBridge<Resource>::DisplaySideBridge(std::shared_ptr<comm::ActiveObject> worker)
    : worker_{std::move(worker)}, ids_{&DisplaySideScheme<Resource>::idName, &Element::elementUri} {}

template <class Resource>
void DisplaySideBridge<Resource>::setApi(const ServiceApi& api) {
    assert(worker_->isCurrentThread());
    upstream_.template set<typename DisplaySideScheme<Resource>::Stub>(api);
}

template <class Resource>
void DisplaySideBridge<Resource>::resetApi() {
    assert(worker_->isCurrentThread());
    upstream_.reset();
}

template <class Resource>
void DisplaySideBridge<Resource>::cancelRequest(void* key) {
    kelo::postBrief(*worker_, [this, key] { pending_.cancel(key); });
}

template <class Resource>
void* DisplaySideBridge<Resource>::retrieveList(std::unique_ptr<kelo::IResponseHandler<ListPage>>&& handler,
                                                const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    using Scheme = DisplaySideScheme<Resource>;
    const RequestKey key = newRequestKey();
    auto made = std::make_unique<typename Pending::Request>(std::move(handler), RequestDetails{params});
    kelo::postBrief(*worker_, [this, key, request = std::move(made)]() mutable {
        const tracing::Channel& channel = Scheme::channel;
        tracing::logC(channel, progressLevel, Scheme::list);
        RequestDetails& details = request->context;
        if (details.params && Scheme::wanted(details.params->values, details.key)) {
            tracing::logCV(channel, progressLevel, Scheme::listOfOne, printable(details.key));
            if (!upstream_) {
                request->fail(noClientResponse(channel, Scheme::listNoClient));
            } else {
                askOne(key, std::move(request));
            }
            return;
        }
        tracing::logC(channel, progressLevel, Scheme::listOfAll);
        if (!upstream_) {
            tracing::logC(channel, failureLevel, Scheme::listNoClient);
            return;
        }
        auto upstream = std::make_unique<AllHandler>(*worker_, request->oneShot, request->account, Receiver<All>{this, key});
        pending_.start(key, std::move(request), upstream_.api(),
                       [&] { return Scheme::getAll(upstream_.client(), std::move(upstream)); });
    });
    return key;
}

template <class Resource>
void* DisplaySideBridge<Resource>::retrieveElement(std::unique_ptr<kelo::IResponseHandler<Element>>&& handler,
                                                   const std::UUID& id,
                                                   const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    using Scheme = DisplaySideScheme<Resource>;
    const RequestKey key = newRequestKey();
    auto made = std::make_unique<typename Pending::Request>(std::move(handler), RequestDetails{params});
    kelo::postBrief(*worker_, [this, key, id, request = std::move(made)]() mutable {
        const tracing::Channel& channel = Scheme::channel;
        tracing::logCV(channel, progressLevel, Scheme::element, IdText{id}.c_str());
        const Key* known = ids_.find(id);
        if (known == nullptr) {
            tracing::logCV(channel, unknownIdLevel, Scheme::elementUnknown, IdText{id}.c_str());
            request->fail(kelo::Response::createErrorResponse(404, Scheme::elementUnknownReason));
            return;
        }
        request->context.key = *known;
        tracing::logCV(channel, progressLevel, Scheme::elementOfOne, printable(*known));
        if (!upstream_) {
            request->fail(noClientResponse(channel, Scheme::elementNoClient));
        } else {
            askOne(key, std::move(request));
        }
    });
    return key;
}

template <class Resource>
void DisplaySideBridge<Resource>::askOne(RequestKey key, std::unique_ptr<typename Pending::Request> request) {
    auto upstream = std::make_unique<OneHandler>(*worker_, request->oneShot, request->account, Receiver<One>{this, key});
    const Key wanted = request->context.key;
    pending_.start(key, std::move(request), upstream_.api(),
                   [&] { return DisplaySideScheme<Resource>::getOne(upstream_.client(), std::move(upstream), wanted); });
}

template <class Resource>
bool DisplaySideBridge<Resource>::deliver(RequestKey key, const All& all) {
    using Scheme = DisplaySideScheme<Resource>;
    // When the page is over, its elements are kept for the next one.
    struct Page {
        ListPage page;
        SpareElements<Element>& spare;
        ~Page() { spare.keep(std::move(page.data)); }
        operator const ListPage&() const noexcept { return page; }
    };
    return pending_.template next<ListPage>(key, [&] {
        const auto fill = [&](auto&& nextElement) {
            Scheme::forEach(all, [&](const One& one, const Key& known) { convert(one, ids_.record(known), nextElement()); });
        };
        return Page{kelo::tolu::cutPage(spare_.make(fill), pending_.context(key)->params, {Scheme::parameter}), spare_};
    });
}

template <class Resource>
bool DisplaySideBridge<Resource>::deliver(RequestKey key, const One& one) {
    using Scheme = DisplaySideScheme<Resource>;
    const RequestDetails* const details = pending_.context(key);
    if (details == nullptr) return false;
    Element element;
    convert(one, ids_.record(Scheme::keyOf(one, details->key)), element);
    const auto makeElement = [&] { return kelo::tolu::transformElement(std::move(element), details->params); };
    const auto makePage = [&] {
        return kelo::tolu::cutPage(std::vector{std::make_shared<Element>(std::move(element))}, details->params,
                                   {Scheme::parameter});
    };
    return pending_.template next<Element>(key, makeElement) || pending_.template next<ListPage>(key, makePage);
}

}  // namespace hmx
