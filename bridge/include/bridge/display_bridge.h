// Serves the resource "/displays" from the display manager.
#pragma once

#include <string>

#include "bridge/display_side_bridge.h"
#include "hmx/displaymanager/idisplays.h"
#include "hmx/idisplays.h"

namespace hmx {

// The types of the displays. Upstream, an element is identified by the display's name.
struct DisplayResource {
    using Interface = kelo::hmx::IDisplays;
    using Element = kelo::hmx::DisplayObject;
    using ListPage = kelo::hmx::DisplayObjectListPage;
    using Client = kelo::hmx::displaymanager::IDisplays;
    using All = kelo::hmx::displaymanager::DisplaysInfo;
    using One = kelo::hmx::displaymanager::Display;
    using Key = std::string;
};
extern template class DisplaySideBridge<DisplayResource>;

// Thread: as DisplaySideBridge.
class DisplayBridge final : public DisplaySideBridge<DisplayResource> {
public:
    using GetDisplaysResponseHandler = AllHandler;
    using GetDisplayResponseHandler = OneHandler;

    using DisplaySideBridge::DisplaySideBridge;

    void* retrieveDisplayObject(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayObject>>&& handler, const std::UUID& id,
                                const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    // The query value "name" asks for only the display of that name.
    void* retrieveDisplayObjects(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayObjectListPage>>&& handler,
                                 const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
};

}  // namespace hmx
