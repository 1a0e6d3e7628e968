// A point on a display, in pixels.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct PointType {
    kelo::optional<int> posX;
    kelo::optional<int> posY;
};
constexpr auto recordTable(const PointType*) {
    using kelo::record::Row;
    return kelo::record::Table<PointType, Row<"posX", &PointType::posX>, Row<"posY", &PointType::posY>>{"PointType"};
}
static_assert(kelo::record::covers<PointType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PointType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PointType& value);

}  // namespace kelo::hmx
