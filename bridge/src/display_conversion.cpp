#include "bridge/display_conversion.h"

#include <memory>
#include <vector>

namespace hmx {

using kelo::hmx::DisplayableObject;
using kelo::hmx::DisplayObject;
using kelo::hmx::DisplayResolutionType;
using kelo::hmx::LayerconfigurationObject;
using kelo::hmx::LayerType;
namespace displaymanager = kelo::hmx::displaymanager;

namespace {

const std::string noName{"no_name_defined"};

// `Size`: displaymanager::DisplayResolution or displaymanager::DisplayableSize.
template <class Size>
kelo::optional<std::shared_ptr<DisplayResolutionType>> toResolution(const kelo::optional<Size>& size) {
    if (!size) return {};
    auto resolution = std::make_shared<DisplayResolutionType>();
    resolution->width = size->width;
    resolution->height = size->height;
    return resolution;
}

}  // namespace

const std::string& displayName(const displaymanager::Display& display) noexcept {
    return display.name ? *display.name : noName;
}

const std::string& displayName(const displaymanager::DisplayLayers& configuration) noexcept {
    return configuration.display ? displayName(*configuration.display) : noName;
}

std::string displayIdName(const std::string& name) {
    return "hmx/displays/" + name;
}
std::string displayableIdName(const int& number) {
    return "hmx/displayables/" + std::to_string(number);
}
std::string layersIdName(const std::string& displayName) {
    return "hmx/layerconfigurations/" + displayName;
}

std::shared_ptr<DisplayObject> toDisplayObject(const displaymanager::Display& display, const std::UUID& id) {
    auto object = std::make_shared<DisplayObject>(id, DisplayObject::elementUri(id));
    object->name = displayName(display);
    object->displayID = display.id;
    object->displayInternalID = display.internalid;
    object->connector = display.connector;
    object->resolution = toResolution(display.resolution);
    object->terminal = display.terminal;
    object->touchSupport = display.touchSupport;
    return object;
}

std::shared_ptr<DisplayableObject> toDisplayableObject(const displaymanager::Displayable& displayable, const std::UUID& id) {
    auto object = std::make_shared<DisplayableObject>(id, DisplayableObject::elementUri(id));
    if (displayable.name) object->name = *displayable.name;
    object->displayableID = displayable.id;
    object->size = toResolution(displayable.size);
    object->type = displayable.type;
    return object;
}

std::shared_ptr<LayerconfigurationObject> toLayerconfigurationObject(const displaymanager::DisplayLayers& configuration,
                                                                     const std::UUID& id) {
    auto object = std::make_shared<LayerconfigurationObject>(id, LayerconfigurationObject::elementUri(id));
    std::vector<std::shared_ptr<LayerType>> layers;
    if (configuration.layers && configuration.layers->infoForAllLayers) {
        layers.reserve(configuration.layers->infoForAllLayers->size());
        for (const auto& layer : *configuration.layers->infoForAllLayers) {
            if (layer == nullptr) continue;
            const auto& made = layers.emplace_back(std::make_shared<LayerType>());
            made->id = layer->id;
            made->name = layer->name;
            made->zpos = layer->zpos;
        }
    }
    object->layers = std::move(layers);
    return object;
}

}  // namespace hmx
