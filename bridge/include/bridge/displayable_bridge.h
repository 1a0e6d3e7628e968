// Serves the resource "/displayables" from the display manager.
#pragma once

#include "bridge/display_side_bridge.h"
#include "hmx/displaymanager/idisplayables.h"
#include "hmx/idisplayables.h"

namespace hmx {

// The types of the displayables. Upstream, an element is identified by the displayable's number.
struct DisplayableResource {
    using Interface = kelo::hmx::IDisplayables;
    using Element = kelo::hmx::DisplayableObject;
    using ListPage = kelo::hmx::DisplayableObjectListPage;
    using Client = kelo::hmx::displaymanager::IDisplayables;
    using All = kelo::hmx::displaymanager::DisplayablesInfo;
    using One = kelo::hmx::displaymanager::Displayable;
    using Key = int;
};
extern template class DisplaySideBridge<DisplayableResource>;

// Thread: as DisplaySideBridge.
class DisplayableBridge final : public DisplaySideBridge<DisplayableResource> {
public:
    using GetDisplayablesResponseHandler = AllHandler;
    using GetDisplayableResponseHandler = OneHandler;

    using DisplaySideBridge::DisplaySideBridge;

    void* retrieveDisplayableObject(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayableObject>>&& handler,
                                    const std::UUID& id, const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
    // The query value "displayableID", an integer, asks for only the displayable with that number.
    void* retrieveDisplayableObjects(std::unique_ptr<kelo::IResponseHandler<kelo::hmx::DisplayableObjectListPage>>&& handler,
                                     const kelo::optional<kelo::toluglobals::ToluParams>& params) override;
};

}  // namespace hmx
