// A retrieve is kept as the question that it asks: each new state of a part is an answer to all that look at it. Who asks for a
// whole list gets every state, because it is a state of that list; who asks for one element, or for the popups in some state,
// gets only what differs from what it got last, because the others do not concern it.
//
// Where the original asks an upstream service for one element by name, and that one does not know it, the answer is that
// service's. Its words are not known here, so those of the simulated services stand for them.
#include "hmx/replica/replica.h"

#include <algorithm>
#include <atomic>

#include "core/list_page.h"
#include "core/response_handlers.h"
#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/element_ids.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/query.h"
#include "hmx/refusals.h"
#include "hmx/regionconfigurations_service.h"
#include "kelo/commands.h"
#include "kelo/uuid.h"

namespace hmx::replica {

namespace {

using kelo::IResponseHandler;
using kelo::Response;
using kelo::hmx::DisplayableObject;
using kelo::hmx::DisplayObject;
using kelo::hmx::LayerconfigurationObject;
using kelo::hmx::PopupObject;
using kelo::hmx::RegionconfigurationObject;
using kelo::tolu::ListPage;
using kelo::toluglobals::ToluParams;
using Params = kelo::optional<ToluParams>;

Response notFound(const std::string& reason) {
    return Response::createErrorResponse(404, reason);
}

std::UUID idOf(const std::string& name) {
    return kelo::uuid::createFromName(name);
}

// Passes on only what differs from the value before.
template <class Result>
std::unique_ptr<IResponseHandler<Result>> changesOnly(std::unique_ptr<IResponseHandler<Result>> handler) {
    using kelo::responsehandlers::ComparingPredicate;
    using Changes = ComparingPredicate<Result>;
    return std::make_unique<kelo::responsehandlers::FilteringResponseHandler<Result, Changes>>(
        std::move(handler), Changes{kelo::record::equal<Result>});
}

// What all resources have in common. `Interface`: of the resource's service.
template <class Interface, class Element>
class Served : public Interface {
public:
    void cancelRequest(void* handle) final { resource.followers().cancel(handle); }

    Resource<Element> resource;

protected:
    using Elements = typename Resource<Element>::Elements;
    using Page = ListPage<Element>;
    using One = Found<std::shared_ptr<Element>>;
    using PageHandler = std::unique_ptr<IResponseHandler<Page>>;
    using ElementHandler = std::unique_ptr<IResponseHandler<Element>>;

    // The page of the elements that the parameters ask for.
    virtual Page page(Elements elements, const Params& params) const {
        return kelo::tolu::cutPage(std::move(elements), params, {"name"});
    }

    template <class Result, class Look>
    void* follow(std::optional<std::string> part, std::unique_ptr<IResponseHandler<Result>> handler, Look look) {
        return resource.followers().add(
            std::make_shared<Retrieve<Result, Look>>(std::move(part), std::move(handler), std::move(look)));
    }
    // All of a part. `unknown`: why not, where it is not known.
    void* followList(const std::string& part, const std::string& unknown, PageHandler handler, const Params& params) {
        return follow(part, std::move(handler), [=, this]() -> Found<Page> {
            std::optional<Response> refusal;
            const Elements* const elements = resource.list(part, refusal);
            if (elements != nullptr) return page(*elements, params);
            return refusal ? *refusal : notFound(unknown);
        });
    }
    // A single element, or a list of only this. `find()` returns it or the reason against it.
    template <class Find>
    void* followOne(ElementHandler handler, const Params& params, Find find) {
        return follow({}, changesOnly(std::move(handler)), [=]() -> Found<Element> {
            const One one = find();
            if (!one.value) return one.refusal;
            return *kelo::tolu::transformElement(*one.value, params);
        });
    }
    template <class Find>
    void* followOne(PageHandler handler, const Params& params, Find find) {
        return follow({}, changesOnly(std::move(handler)), [=, this]() -> Found<Page> {
            const One one = find();
            if (!one.value) return one.refusal;
            return page({*one.value}, params);
        });
    }

    // The list, or only the element that the parameters name: `findNamed(name)`.
    template <class FindNamed>
    void* followNamed(PageHandler handler, const Params& params, FindNamed findNamed) {
        const std::string* const name = params ? restriction(params->values, "name") : nullptr;
        if (name == nullptr) return followList("", "", std::move(handler), params);
        return followOne(std::move(handler), params, [name = *name, findNamed] { return findNamed(name); });
    }

    // `unknown`: why not, where there is no element with that id.
    One find(const std::UUID& id, const std::string& unknown) const {
        std::optional<Response> refusal;
        auto element = resource.find(id, refusal);
        if (element != nullptr) return element;
        return refusal ? *refusal : notFound(unknown);
    }
    // The same for an id that a client has: `unknown`, if there never was such an element, and `findNamed(element)`, which asks
    // for it by its name, if there is or was.
    template <class FindNamed>
    One find(const std::UUID& id, const char* unknown, FindNamed findNamed) const {
        One one = find(id, unknown);
        const auto element = one.value ? *one.value : one.refusal.status() == 404 ? resource.seen(id) : nullptr;
        return element == nullptr ? one : findNamed(*element);
    }
};

class Displays final : public Served<kelo::hmx::IDisplays, DisplayObject> {
    void* retrieveDisplayObject(ElementHandler&& handler, const std::UUID& id, const Params& params) override {
        return followOne(std::move(handler), params, [=, this] {
            return find(id, refusals::displayUnknown, [this](const DisplayObject& display) { return findNamed(display.name); });
        });
    }
    void* retrieveDisplayObjects(PageHandler&& handler, const Params& params) override {
        return followNamed(std::move(handler), params, [this](const std::string& name) { return findNamed(name); });
    }
    One findNamed(const std::string& name) const {
        if (name.empty()) return notFound(refusals::displayNameless);
        const std::string unknown = "no such display: " + name;
        return name == namelessDisplay ? notFound(unknown) : find(idOf(displayIdName(name)), unknown);
    }
};

class Displayables final : public Served<kelo::hmx::IDisplayables, DisplayableObject> {
    void* retrieveDisplayableObject(ElementHandler&& handler, const std::UUID& id, const Params& params) override {
        return followOne(std::move(handler), params, [=, this] {
            return find(id, refusals::displayableUnknown, [&](const DisplayableObject& displayable) {
                return findNumbered(displayable.displayableID.value_or(0));
            });
        });
    }
    void* retrieveDisplayableObjects(PageHandler&& handler, const Params& params) override {
        int number = 0;
        if (params && wantsNoDisplayable(params->values)) {
            return follow({}, std::move(handler), [=, this] { return Found<Page>{page({}, params), true}; });
        }
        if (!params || !wantsDisplayable(params->values, number)) return followList("", "", std::move(handler), params);
        return followOne(std::move(handler), params, [=, this] { return findNumbered(number); });
    }
    One findNumbered(int number) const {
        return find(idOf(displayableIdName(number)), "no such displayable: " + std::to_string(number));
    }
    Page page(Elements elements, const Params& params) const override {
        return kelo::tolu::cutPage(std::move(elements), params, {displayableParameter});
    }
};

class Layerconfigurations final : public Served<kelo::hmx::ILayerconfigurations, LayerconfigurationObject> {
public:
    explicit Layerconfigurations(const Resource<DisplayObject>& displays) : displays_{displays} {}

private:
    void* retrieveLayerconfigurationObject(ElementHandler&& handler, const std::UUID& id, const Params& params) override {
        return followOne(std::move(handler), params, [=, this] {
            return find(id, refusals::layersUnknown, [&](const LayerconfigurationObject&) {
                const auto name = nameOf(id);
                return name ? findNamed(*name) : find(id, refusals::layersUnknown);
            });
        });
    }
    void* retrieveLayerconfigurationObjects(PageHandler&& handler, const Params& params) override {
        return followNamed(std::move(handler), params, [this](const std::string& name) { return findNamed(name); });
    }
    One findNamed(const std::string& name) const {
        if (name.empty()) return notFound(refusals::layersNameless);
        const std::string unknown = "no layer configuration of display: " + name;
        return name == namelessDisplay ? notFound(unknown) : find(idOf(layersIdName(name)), unknown);
    }
    // The display's name, which is not in the element.
    std::optional<std::string> nameOf(const std::UUID& id) const {
        if (id == idOf(layersIdName(""))) return "";
        std::optional<std::string> name;
        displays_.forEachSeen([&](const DisplayObject& display) {
            if (idOf(layersIdName(display.name)) == id) name = display.name;
            return bool(name);
        });
        return name;
    }

    const Resource<DisplayObject>& displays_;
};

class Popups final : public Served<kelo::hmx::IPopups, PopupObject> {
    void* retrievePopupObject(ElementHandler&& handler, const std::UUID& id, const Params& params) override {
        return followOne(std::move(handler), params, [=, this] {
            return find(id, refusals::popupUnknown,
                        [this](const PopupObject& popup) { return findNamed(popup.display.value_or(""), popup.name); });
        });
    }
    void* retrievePopupObjects(PageHandler&& handler, const Params& params) override {
        const std::string* const display = params ? restriction(params->values, "display") : nullptr;
        if (display == nullptr) {
            handler->onError(Response::createErrorResponse(400, refusals::popupsNeedDisplay));
            return nullptr;
        }
        const std::string* const name = restriction(params->values, "name");
        if (display->empty()) {
            handler->onError(notFound(refusals::popupNameless));
            return nullptr;
        }
        if (name != nullptr) {
            return followOne(std::move(handler), params,
                             [=, this, display = *display, name = *name] { return findNamed(display, name); });
        }
        const bool isOfSomeState = params->values.size() > 1;
        return followList(*display, "no such display: " + *display,
                          isOfSomeState ? changesOnly(std::move(handler)) : std::move(handler), params);
    }
    void* updatePopupObject(std::unique_ptr<IResponseHandler<kelo::url>>&&, const std::UUID&,
                            const kelo::hmx::UpdatePopupObject&) override {
        return nullptr;
    }
    Page page(Elements elements, const Params& params) const override {
        return kelo::tolu::cutPage(std::move(elements), params, {"display", "name"});
    }
    One findNamed(const std::string& display, const std::string& name) const {
        if (display.empty() || name.empty()) return notFound(refusals::popupNameless);
        std::optional<Response> refusal;
        const Elements* const popups = resource.list(display, refusal);
        if (popups == nullptr && refusal) return *refusal;
        for (const auto& popup : popups == nullptr ? Elements{} : *popups) {
            if (popup->name == name) return popup;
        }
        return notFound("no such popup: " + display + '/' + name);
    }
};

class Regionconfigurations final : public Served<kelo::hmx::IRegionconfigurations, RegionconfigurationObject> {
    void* retrieveRegionconfigurationObject(ElementHandler&& handler, const std::UUID& id, const Params& params) override {
        return followOne(std::move(handler), params, [=, this] { return find(id, "UNKNOWN"); });
    }
    void* deleteRegionconfigurationObject(std::unique_ptr<IResponseHandler<std::nullptr_t>>&&, const std::UUID&,
                                          const kelo::optional<std::vector<std::string>>&) override {
        return nullptr;
    }
    void* insertRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&&,
                                          const kelo::hmx::InsertRegionconfigurationObject&) override {
        return nullptr;
    }
    void* updateRegionconfigurationObject(std::unique_ptr<IResponseHandler<kelo::url>>&&, const std::UUID&,
                                          const kelo::hmx::UpdateRegionconfigurationObject&) override {
        return nullptr;
    }
};

// Lets the replica's services answer retrieves, and sends on what would change something: the operations for changes above are
// never called.
class Door final : public kelo::IResourceHandler {
public:
    Door(kelo::IResourceHandler& service, kelo::IResourceHandler& changes) : service_{service}, changes_{changes} {}

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override {
        const int command = kelo::commands::toId(request.command());
        const bool isChange = command != kelo::commands::retrieve && command != kelo::commands::unknown;
        return (isChange ? changes_ : service_).actionRequest(request, std::move(responder), tag);
    }
    void cancelRequest(void* handle) override {
        service_.cancelRequest(handle);
        changes_.cancelRequest(handle);
    }

private:
    kelo::IResourceHandler& service_;
    kelo::IResourceHandler& changes_;
};

// One resource with its service and its place in the whole.
template <class Impl, class Service>
struct Place {
    template <class... More>
    Place(kelo::SimpleComposedKeloService& all, std::string_view root, kelo::IResourceHandler& changes, const More&... more)
        : impl{more...}, door{service, changes} {
        (void)all.registerService(root, &door);
    }
    Impl impl;
    Service service{&impl};
    Door door;
};

}  // namespace

void* newHandle() noexcept {
    static std::atomic<std::uintptr_t> next{1};
    return reinterpret_cast<void*>(next.fetch_add(1, std::memory_order_relaxed));  // opaque: never dereferenced
}

void* Followers::add(std::shared_ptr<Follower> follower) {
    void* const handle = newHandle();
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    open_.emplace(number, std::move(follower));
    renew(number);
    return open_.contains(number) ? handle : nullptr;
}

void Followers::renew(const std::string& part) {
    std::vector<std::uintptr_t> concerned;
    for (const auto& [number, follower] : open_) {
        if (follower->looksAt(part)) concerned.push_back(number);
    }
    for (const std::uintptr_t number : concerned) renew(number);
}

// What is told may cancel any request, also this one, and begin others.
void Followers::renew(std::uintptr_t number) {
    const auto place = open_.find(number);
    if (place == open_.end()) return;
    const std::shared_ptr<Follower> follower = place->second;
    if (follower->renew()) open_.erase(number);
}

void Followers::cancel(void* handle) {
    open_.erase(reinterpret_cast<std::uintptr_t>(handle));
}

struct Replica::Content {
    explicit Content(kelo::IResourceHandler& changes)
        : displays{all, DisplayObject::resourcePath, changes},
          displayables{all, DisplayableObject::resourcePath, changes},
          layerconfigurations{all, LayerconfigurationObject::resourcePath, changes, displays.impl.resource},
          popups{all, PopupObject::resourcePath, changes},
          regionconfigurations{all, RegionconfigurationObject::resourcePath, changes} {}

    kelo::SimpleComposedKeloService all;
    Place<Displays, kelo::hmx::DisplaysService> displays;
    Place<Displayables, kelo::hmx::DisplayablesService> displayables;
    Place<Layerconfigurations, kelo::hmx::LayerconfigurationsService> layerconfigurations;
    Place<Popups, kelo::hmx::PopupsService> popups;
    Place<Regionconfigurations, kelo::hmx::RegionconfigurationsService> regionconfigurations;
};

Replica::Replica(kelo::IResourceHandler& changes) : content_{std::make_unique<Content>(changes)} {}
Replica::~Replica() = default;

Resource<DisplayObject>& Replica::displays() noexcept {
    return content_->displays.impl.resource;
}
Resource<DisplayableObject>& Replica::displayables() noexcept {
    return content_->displayables.impl.resource;
}
Resource<LayerconfigurationObject>& Replica::layerconfigurations() noexcept {
    return content_->layerconfigurations.impl.resource;
}
Resource<PopupObject>& Replica::popups() noexcept {
    return content_->popups.impl.resource;
}
Resource<RegionconfigurationObject>& Replica::regionconfigurations() noexcept {
    return content_->regionconfigurations.impl.resource;
}

kelo::SimpleComposedKeloService& Replica::service() noexcept {
    return content_->all;
}

}  // namespace hmx::replica
