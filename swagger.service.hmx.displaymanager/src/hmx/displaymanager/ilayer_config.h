// The display manager's requests about the layers of displays.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/display_layers_array_inner.h"
#include "kelo/response_handler.h"

namespace kelo::hmx::displaymanager {

// For requests and handles see IDisplays. Thread: any.
class ILayerConfig {
public:
    virtual ~ILayerConfig() = default;
    virtual void* getLayerConfigs(std::unique_ptr<IResponseHandler<std::vector<DisplayLayersArrayInner>>>&& handler) = 0;
    virtual void* getLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler, const std::string& displayId) = 0;
    // Changes nothing: sends the same request as getLayerConfig and returns the current layers.
    virtual void* updateLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler, const std::string& displayId) = 0;
};

}  // namespace kelo::hmx::displaymanager
