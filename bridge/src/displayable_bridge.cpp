#include "bridge/displayable_bridge.h"

#include "bridge/display_conversion.h"
#include "display_side_bridge_impl.h"
#include "hmx/displaymanager/displayables_client.h"
#include "hmx/query.h"
#include "hmx/refusals.h"

namespace hmx {

template <>
struct DisplaySideScheme<DisplayableResource> : DisplayableResource {
    static constexpr char list[] = "DisplayableBridge::retrieveDisplayableObjects";
    static constexpr char listOfAll[] = "DisplayableBridge::retrieveDisplayableObjects for entire resource";
    static constexpr char listOfOne[] =
        "DisplayableBridge::retrieveDisplayableObjects requesting displayable via swagger for displayable: %i";
    static constexpr char listNoClient[] = "DisplayableBridge::retrieveDisplayableObjects no display client available";
    static constexpr char element[] = "DisplayableBridge::retrieveDisplayableObject id : %s ";
    static constexpr char elementUnknown[] =
        "DisplayableBridge::retrieveDisplayableObject id : %s for displayable is not known on hmx brigde";
    static constexpr const auto& elementUnknownReason = refusals::displayableUnknown;
    static constexpr char elementOfOne[] = "DisplayableBridge::retrieveDisplayableObject requesting displayable: %i via swagger";
    static constexpr char elementNoClient[] = "DisplayableBridge::retrieveDisplayableObject no display client available";

    static inline const tracing::Channel channel{"HMX_TOLU_BRIDGE_DISPLAYABLES"};

    using Stub = kelo::hmx::displaymanager::DisplayablesClient;
    static void* getAll(Client& client, std::unique_ptr<kelo::IResponseHandler<All>> handler) {
        return client.getDisplayables(std::move(handler));
    }
    static void* getOne(Client& client, std::unique_ptr<kelo::IResponseHandler<One>> handler, int number) {
        return client.getDisplayable(std::move(handler), number);
    }

    static constexpr std::string_view parameter = displayableParameter;
    static bool wanted(const util::config::Dictionary& query, int& number) { return wantsDisplayable(query, number); }
    static std::string idName(const int& number) { return displayableIdName(number); }
    static int keyOf(const One& displayable, int) { return displayable.id; }
    template <class Visit>
    static void forEach(const All& all, Visit&& visit) {
        if (!all.infoForAllDisplayables) return;
        for (const One& displayable : *all.infoForAllDisplayables) visit(displayable, displayable.id);
    }
};

template <>
struct DisplaySideAnswerTexts<DisplayableResource::All> {
    static constexpr char update[] = "DisplayableBridge::GetDisplayablessResponseHandler::onNext received update";
    static constexpr char error[] = "DisplayableBridge::GetDisplayablesResponseHandler::onError received error error: %s";
    static constexpr char completed[] = "DisplayableBridge::GetDisplayablesResponseHandler::onCompleted ";
};

template <>
struct DisplaySideAnswerTexts<DisplayableResource::One> {
    static constexpr char update[] = "DisplayableBridge::GetDisplayableResponseHandler::onNext received update";
    static constexpr char error[] = "DisplayableBridge::GetDisplayableResponseHandler::onError received error error: %s";
    static constexpr char completed[] = "DisplayableBridge::GetDisplayableResponseHandler::onCompleted ";
};

template class DisplaySideBridge<DisplayableResource>;

void* DisplayableBridge::retrieveDisplayableObject(
    std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayableObject>>&& handler, const std::UUID& id,
    const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    return retrieveElement(std::move(handler), id, params);
}

void* DisplayableBridge::retrieveDisplayableObjects(
    std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayableObjectListPage>>&& handler,
    const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    using Scheme = DisplaySideScheme<DisplayableResource>;
    if (params && wantsNoDisplayable(params->values)) {
        tracing::logC(Scheme::channel, progressLevel, Scheme::list);
        const auto none = kelo::tolu::cutPage(std::vector<std::shared_ptr<kelo::hmx::DisplayableObject>>{}, params);
        if (!handler->onNext(none)) handler->onCompleted();
        return newRequestKey();
    }
    return retrieveList(std::move(handler), params);
}

}  // namespace hmx
