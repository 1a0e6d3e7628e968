// Serves the resource "/layerconfigurations" from the display manager: one configuration for each display.
#pragma once

#include <string>
#include <vector>

#include "bridge/display_side_bridge.h"
#include "hmx/displaymanager/ilayer_config.h"
#include "hmx/ilayerconfigurations.h"

namespace hmx {

// The types of the layer configurations. Upstream, an element is identified by the name of its display.
struct LayersResource {
    using Interface = kelo::hmx::ILayerconfigurations;
    using Element = kelo::hmx::LayerconfigurationObject;
    using ListPage = kelo::hmx::LayerconfigurationObjectListPage;
    using Client = kelo::hmx::displaymanager::ILayerConfig;
    using All = std::vector<kelo::hmx::displaymanager::DisplayLayersArrayInner>;
    using One = kelo::hmx::displaymanager::DisplayLayers;
    using Key = std::string;
};
extern template class DisplaySideBridge<LayersResource>;

// Thread: as DisplaySideBridge.
class LayersBridge final : public DisplaySideBridge<LayersResource> {
public:
    using GetLayerConfigsResponseHandler = AllHandler;
    using GetLayerConfigResponseHandler = OneHandler;

    using DisplaySideBridge::DisplaySideBridge;

    void* retrieveLayerconfigurationObject(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::LayerconfigurationObject>>&& handler,
                                           const std::UUID& id,
                                           const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    // The query value "name" asks for only the configuration of the display of that name.
    void* retrieveLayerconfigurationObjects(
        std::unique_ptr<kelo::IResponseHandler<kelo::hmx::LayerconfigurationObjectListPage>>&& handler,
        const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
};

}  // namespace hmx
