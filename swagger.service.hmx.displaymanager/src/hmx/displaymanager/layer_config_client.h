// Client stub: asks the display manager about the layers of displays.
#pragma once

#include "core/client_stub.h"
#include "hmx/displaymanager/ilayer_config.h"

namespace kelo::hmx::displaymanager {

// Thread: any.
class LayerConfigClient final : public ILayerConfig {
public:
    // `api` is not owned and must outlive the client. `mimeType`: for the answers that are wanted.
    LayerConfigClient(IKeloApi* api, const std::string& mimeType);
    void* getLayerConfigs(std::unique_ptr<IResponseHandler<std::vector<DisplayLayersArrayInner>>>&& handler) override;
    void* getLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler, const std::string& displayId) override;
    void* updateLayerConfig(std::unique_ptr<IResponseHandler<DisplayLayers>>&& handler, const std::string& displayId) override;

private:
    ClientStub stub_;
};

}  // namespace kelo::hmx::displaymanager
