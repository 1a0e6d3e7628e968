#include "bridge/layers_bridge.h"

#include "bridge/display_conversion.h"
#include "display_side_bridge_impl.h"
#include "hmx/displaymanager/layer_config_client.h"
#include "hmx/query.h"
#include "hmx/refusals.h"

namespace hmx {

template <>
struct DisplaySideScheme<LayersResource> : LayersResource {
    static constexpr char list[] = "LayersBridge::retrieveLayerconfigurationObjects";
    static constexpr char listOfAll[] = "LayersBridge::retrieveLayerconfigurationObjects for entire resource";
    static constexpr char listOfOne[] =
        "LayersBridge::retrieveLayerconfigurationObjects requesting layers via swagger for display: %s";
    static constexpr char listNoClient[] = "LayersBridge::retrieveLayerconfigurationObjects no display client available";
    static constexpr char element[] = "LayersBridge::retrieveLayerconfigurationObject id : %s ";
    static constexpr char elementUnknown[] =
        "LayersBridge::retrieveLayerconfigurationObject id : %s for layerconfig is not known on hmx brigde";
    static constexpr const auto& elementUnknownReason = refusals::layersUnknown;
    static constexpr char elementOfOne[] =
        "LayersBridge::retrieveLayerconfigurationObject requesting layers for display: %s via swagger";
    static constexpr char elementNoClient[] = "LayersBridge::retrieveLayerconfigurationObject no display client available";

    static inline const tracing::Channel channel{"HMX_TOLU_BRIDGE_LAYERS"};

    using Stub = kelo::hmx::displaymanager::LayerConfigClient;
    static void* getAll(Client& client, std::unique_ptr<kelo::IResponseHandler<All>> handler) {
        return client.getLayerConfigs(std::move(handler));
    }
    static void* getOne(Client& client, std::unique_ptr<kelo::IResponseHandler<One>> handler, const std::string& name) {
        if (name.empty()) return refuseNameless(refusals::layersNameless, *handler);
        return client.getLayerConfig(std::move(handler), name);
    }

    static constexpr std::string_view parameter = "name";
    static bool wanted(const util::config::Dictionary& query, std::string& name) {
        const std::string* const given = restriction(query, parameter);
        if (given != nullptr) name = *given;
        return given != nullptr;
    }
    static std::string idName(const std::string& name) { return layersIdName(name); }
    // The answer for one display may leave out its name.
    static const std::string& keyOf(const One&, const std::string& asked) { return asked; }
    template <class Visit>
    static void forEach(const All& all, Visit&& visit) {
        for (const auto& entry : all) {
            if (entry.layersForDisplay) visit(*entry.layersForDisplay, displayName(*entry.layersForDisplay));
        }
    }
};

template <>
struct DisplaySideAnswerTexts<LayersResource::All> {
    static constexpr char update[] = "LayersBridge::GetLayerConfigsResponseHandler::onNext received update";
    static constexpr char error[] = "LayersBridge::GetLayerConfigsResponseHandler::onError received error error: %s";
};

template <>
struct DisplaySideAnswerTexts<LayersResource::One> {
    static constexpr char update[] = "LayersBridge::GetLayerConfigResponseHandler::onNext received update";
    static constexpr char error[] = "LayersBridge::GetLayerConfigResponseHandler::onError received error error: %s";
};

template class DisplaySideBridge<LayersResource>;

void* LayersBridge::retrieveLayerconfigurationObject(
    std::unique_ptr<kelo::IResponseHandler<kelo::hmx::LayerconfigurationObject>>&& handler, const std::UUID& id,
    const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    return retrieveElement(std::move(handler), id, params);
}

void* LayersBridge::retrieveLayerconfigurationObjects(
    std::unique_ptr<kelo::IResponseHandler<kelo::hmx::LayerconfigurationObjectListPage>>&& handler,
    const kelo::optional<kelo::toluglobals::ToluParams>& params) {
    return retrieveList(std::move(handler), params);
}

}  // namespace hmx
