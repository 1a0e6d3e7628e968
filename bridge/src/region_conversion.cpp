#include "bridge/region_conversion.h"

#include <memory>
#include <vector>

namespace hmx {

using kelo::hmx::RegionconfigurationObject;
namespace inputregions = kelo::hmx::inputregions;

namespace {

// Each converts the members that both sides have.
void convert(const kelo::hmx::PointType& from, inputregions::Point& to) {
    to.x = from.posX;
    to.y = from.posY;
}

void convert(const kelo::hmx::HapticAndInputInfoPerLayerType& from, inputregions::HapticAndInputInfoPerLayer& to);
template <class From, class To>
void convert(const kelo::optional<std::shared_ptr<From>>& from, std::shared_ptr<To>& to);

void convert(const kelo::hmx::RectangleType& from, inputregions::Rectangle& to) {
    convert(from.upperLeftPoint, to.pointMin);
    to.width = from.width;
    to.height = from.height;
}

void convert(const kelo::hmx::InputRegionType& from, inputregions::InputRegion& to) {
    convert(from.bounds, to.bounds);
    to.exclusive = from.exclusive;
    to.keepFocus = from.keepFocus;
    convert(from.hitOutside, to.hitOutside);
    to.notifyOutside = from.notifyOutside;
    to.translateInput = from.translateInput;
    to.translateX = from.translateX;
    to.translateY = from.translateY;
}

void convert(const kelo::hmx::HapticRegionType& from, inputregions::HapticRegion& to) {
    to.hapticRegion = from.hapticRegion;
    convert(from.bounds, to.bounds);
    to.hapticFeedback = from.hapticFeedback;
}

template <class From, class To>
void convert(const kelo::optional<std::shared_ptr<From>>& from, std::shared_ptr<To>& to) {
    if (!from || *from == nullptr) return;
    to = std::make_shared<To>();
    convert(**from, *to);
}

template <class From, class To>
void convert(const std::vector<std::shared_ptr<From>>& from, std::vector<To>& to) {
    to.reserve(from.size());
    for (const auto& element : from) {
        if (element != nullptr) convert(*element, to.emplace_back());
    }
}

template <class From, class To>
void convert(const kelo::optional<std::vector<From>>& from, kelo::optional<std::vector<To>>& to) {
    if (!from) return;
    to.emplace();
    convert(*from, *to);
}

void convert(const kelo::hmx::HapticAndInputInfoPerLayerType& from, inputregions::HapticAndInputInfoPerLayer& to) {
    to.layer = from.layer;
    convert(from.inputRegions, to.inputRegions);
    convert(from.hapticRegions, to.hapticRegions);
}

}  // namespace

inputregions::HapticAndInputInfoPerHMI toUpstreamRegions(const RegionconfigurationObject& object) {
    inputregions::HapticAndInputInfoPerHMI info;
    info.subComponent = object.subComponent;
    if (object.regions && *object.regions != nullptr && (*object.regions)->infoForAllLayers) {
        convert(*(*object.regions)->infoForAllLayers, info.infoForAllLayers);
    }
    return info;
}

}  // namespace hmx
