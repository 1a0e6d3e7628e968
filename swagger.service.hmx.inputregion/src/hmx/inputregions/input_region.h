// A region whose touches go to a layer of an HMI.
#pragma once

#include <memory>
#include <string>

#include "hmx/inputregions/point.h"
#include "hmx/inputregions/rectangle.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct InputRegion {
    kelo::optional<int> regionID;
    kelo::optional<std::string> hmiName;
    kelo::optional<std::string> layer;
    std::shared_ptr<Rectangle> bounds;
    kelo::optional<bool> exclusive;
    kelo::optional<bool> keepFocus;
    std::shared_ptr<Point> hitOutside;
    kelo::optional<bool> notifyOutside;
    kelo::optional<bool> dropEvent;
    kelo::optional<bool> translateInput;
    kelo::optional<int> translateX;
    kelo::optional<int> translateY;
};
constexpr auto recordTable(const InputRegion*) {
    using kelo::record::Row;
    return kelo::record::Table<InputRegion, Row<"regionID", &InputRegion::regionID>, Row<"hmiName", &InputRegion::hmiName>,
                               Row<"layer", &InputRegion::layer>, Row<"bounds", &InputRegion::bounds>,
                               Row<"exclusive", &InputRegion::exclusive>, Row<"keepFocus", &InputRegion::keepFocus>,
                               Row<"hitOutside", &InputRegion::hitOutside>, Row<"notifyOutside", &InputRegion::notifyOutside>,
                               Row<"dropEvent", &InputRegion::dropEvent>, Row<"translateInput", &InputRegion::translateInput>,
                               Row<"translateX", &InputRegion::translateX>, Row<"translateY", &InputRegion::translateY>>{
        "InputRegion"};
}
static_assert(kelo::record::covers<InputRegion>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InputRegion& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InputRegion& value);

}  // namespace kelo::hmx::inputregions
