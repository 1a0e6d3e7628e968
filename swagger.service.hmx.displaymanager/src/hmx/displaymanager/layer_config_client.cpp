#include "hmx/displaymanager/layer_config_client.h"

#include "hmx/displaymanager/service_path.h"

namespace kelo::hmx::displaymanager {

LayerConfigClient::LayerConfigClient(IKeloApi* api, const std::string& mimeType) : stub_{api, servicePath, mimeType} {}

void* LayerConfigClient::getLayerConfigs(std::unique_ptr<IResponseHandler<std::vector<DisplayLayersArrayInner>>>&& handler) {
    return stub_.request({"retrieve", "/layerConfig", "DisplayLayersArray"}, std::move(handler), {});
}

void* LayerConfigClient::getLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler,
                                        const std::string& displayId) {
    return stub_.request({"retrieve", "/layerConfig/*", "DisplayLayers"}, std::move(handler), {displayId});
}

void* LayerConfigClient::updateLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler,
                                           const std::string& displayId) {
    return getLayerConfig(std::move(handler), displayId);
}

}  // namespace kelo::hmx::displaymanager
