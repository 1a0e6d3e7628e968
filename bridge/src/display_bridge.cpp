#include "bridge/display_bridge.h"

#include "bridge/display_conversion.h"
#include "display_side_bridge_impl.h"
#include "hmx/displaymanager/displays_client.h"
#include "hmx/query.h"
#include "hmx/refusals.h"

namespace hmx {

template <>
struct DisplaySideScheme<DisplayResource> : DisplayResource {
    static constexpr char list[] = "DisplayBridge::retrieveDisplayObjects";
    static constexpr char listOfAll[] = "DisplayBridge::retrieveDisplayObjects for entire resource";
    static constexpr char listOfOne[] = "DisplayBridge::retrieveDisplayObjects requesting display via swagger for display: %s";
    static constexpr char listNoClient[] = "DisplayBridge::retrieveDisplayObjects no display client available";
    static constexpr char element[] = "DisplayBridge::retrieveDisplayObject id : %s ";
    static constexpr char elementUnknown[] =
        "DisplayBridge::retrieveDisplayObject id : %s for display is not known on hmx brigde";
    static constexpr const auto& elementUnknownReason = refusals::displayUnknown;
    static constexpr char elementOfOne[] = "DisplayBridge::retrieveDisplayObject requesting display via swagger for display: %s";
    static constexpr char elementNoClient[] = "DisplayBridge::retrieveDisplayObject no display client available";

    static inline const tracing::Channel channel{"HMX_TOLU_BRIDGE_DISPLAYS"};

    using Stub = kelo::hmx::displaymanager::DisplaysClient;
    static void* getAll(Client& client, std::unique_ptr<kelo::IResponseHandler<All>> handler) {
        return client.getDisplays(std::move(handler));
    }
    static void* getOne(Client& client, std::unique_ptr<kelo::IResponseHandler<One>> handler, const std::string& name) {
        if (name.empty()) return refuseNameless(refusals::displayNameless, *handler);
        return client.getDisplay(std::move(handler), name);
    }

    static constexpr std::string_view parameter = "name";
    static bool wanted(const util::config::Dictionary& query, std::string& name) {
        const std::string* const given = restriction(query, parameter);
        if (given != nullptr) name = *given;
        return given != nullptr;
    }
    static std::string idName(const std::string& name) { return displayIdName(name); }
    static const std::string& keyOf(const One& display, const std::string&) { return displayName(display); }
    template <class Visit>
    static void forEach(const All& all, Visit&& visit) {
        if (!all.infoForAllDisplays) return;
        for (const One& display : *all.infoForAllDisplays) visit(display, displayName(display));
    }
};

template <>
struct DisplaySideAnswerTexts<DisplayResource::All> {
    static constexpr char update[] = "DisplayBridge::GetDisplaysResponseHandler::onNext received update";
    static constexpr char error[] = "DisplayBridge::GetDisplaysResponseHandler received error error: %s";
};

template <>
struct DisplaySideAnswerTexts<DisplayResource::One> {
    static constexpr char update[] = "DisplayBridge::GetDisplayResponseHandler::onNext received update";
    static constexpr char error[] = "DisplayBridge::GetDisplayResponseHandler received error error: %s";
};

template class DisplaySideBridge<DisplayResource>;

void* DisplayBridge::retrieveDisplayObject(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayObject>>&& handler,
                                           const std::UUID& id, const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    return retrieveElement(std::move(handler), id, params);
}

void* DisplayBridge::retrieveDisplayObjects(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayObjectListPage>>&& handler,
                                            const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    return retrieveList(std::move(handler), params);
}

}  // namespace hmx
