// A region that receives touches.
#pragma once

#include <memory>

#include "hmx/point_type.h"
#include "hmx/rectangle_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct InputRegionType {
    kelo::optional<std::shared_ptr<RectangleType>> bounds;
    kelo::optional<bool> exclusive;
    kelo::optional<std::shared_ptr<PointType>> hitOutside;
    kelo::optional<bool> keepFocus;
    kelo::optional<bool> notifyOutside;
    kelo::optional<bool> translateInput;
    kelo::optional<int> translateX;
    kelo::optional<int> translateY;
};
constexpr auto recordTable(const InputRegionType*) {
    using kelo::record::Row;
    return kelo::record::Table<
        InputRegionType, Row<"bounds", &InputRegionType::bounds>, Row<"exclusive", &InputRegionType::exclusive>,
        Row<"hitOutside", &InputRegionType::hitOutside>, Row<"keepFocus", &InputRegionType::keepFocus>,
        Row<"notifyOutside", &InputRegionType::notifyOutside>, Row<"translateInput", &InputRegionType::translateInput>,
        Row<"translateX", &InputRegionType::translateX>, Row<"translateY", &InputRegionType::translateY>>{"InputRegionType"};
}
static_assert(kelo::record::covers<InputRegionType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InputRegionType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InputRegionType& value);

}  // namespace kelo::hmx
