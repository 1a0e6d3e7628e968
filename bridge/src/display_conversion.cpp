#include "bridge/display_conversion.h"

#include <cstddef>
#include <memory>

#include "bridge/spare_elements.h"

namespace hmx {

using kelo::hmx::DisplayableObject;
using kelo::hmx::DisplayObject;
using kelo::hmx::DisplayResolutionType;
using kelo::hmx::LayerconfigurationObject;
using kelo::hmx::LayerType;
namespace displaymanager = kelo::hmx::displaymanager;

namespace {

// The URI follows from the id, so it is kept if the id is the same.
void identify(kelo::tolu::XObject& object, const Identity& identity) {
    if (object.id == identity.id && !object.uri.empty()) return;
    object.id = identity.id;
    object.uri = identity.uri;
}

// `Size`: displaymanager::DisplayResolution or displaymanager::DisplayableSize.
template <class Size>
void convert(const kelo::optional<Size>& size, kelo::optional<std::shared_ptr<DisplayResolutionType>>& resolution) {
    if (!size) {
        resolution = kelo::nullopt;
        return;
    }
    if (!resolution) resolution.emplace();
    DisplayResolutionType& made = ownObject(*resolution);
    made.width = size->width;
    made.height = size->height;
}

}  // namespace

const std::string& displayName(const displaymanager::Display& display) noexcept {
    return display.name ? *display.name : namelessDisplay;
}

const std::string& displayName(const displaymanager::DisplayLayers& configuration) noexcept {
    return configuration.display ? displayName(*configuration.display) : namelessDisplay;
}

void convert(const displaymanager::Display& display, const Identity& identity, DisplayObject& object) {
    identify(object, identity);
    object.name = displayName(display);
    object.displayID = display.id;
    object.displayInternalID = display.internalid;
    object.connector = display.connector;
    convert(display.resolution, object.resolution);
    object.terminal = display.terminal;
    object.touchSupport = display.touchSupport;
}

void convert(const displaymanager::Displayable& displayable, const Identity& identity, DisplayableObject& object) {
    identify(object, identity);
    if (displayable.name) {
        object.name = *displayable.name;
    } else {
        object.name.clear();
    }
    object.displayableID = displayable.id;
    convert(displayable.size, object.size);
    object.type = displayable.type;
}

void convert(const displaymanager::DisplayLayers& configuration, const Identity& identity, LayerconfigurationObject& object) {
    identify(object, identity);
    object.name.clear();
    if (!object.layers) object.layers.emplace();
    std::size_t count = 0;
    if (configuration.layers && configuration.layers->infoForAllLayers) {
        object.layers->resize(configuration.layers->infoForAllLayers->size());
        for (const auto& layer : *configuration.layers->infoForAllLayers) {
            if (layer == nullptr) continue;
            LayerType& made = ownObject((*object.layers)[count++]);
            made.id = layer->id;
            made.name = layer->name;
            made.zpos = layer->zpos;
        }
    }
    object.layers->resize(count);
}

}  // namespace hmx
