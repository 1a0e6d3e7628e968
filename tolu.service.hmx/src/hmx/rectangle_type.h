// A rectangle on a display, in pixels.
#pragma once

#include <memory>

#include "hmx/point_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct RectangleType {
    kelo::optional<int> height;
    kelo::optional<std::shared_ptr<PointType>> upperLeftPoint;
    kelo::optional<int> width;
};
constexpr auto recordTable(const RectangleType*) {
    using kelo::record::Row;
    return kelo::record::Table<RectangleType, Row<"height", &RectangleType::height>,
                               Row<"upperLeftPoint", &RectangleType::upperLeftPoint>, Row<"width", &RectangleType::width>>{
        "RectangleType"};
}
static_assert(kelo::record::covers<RectangleType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const RectangleType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, RectangleType& value);

}  // namespace kelo::hmx
