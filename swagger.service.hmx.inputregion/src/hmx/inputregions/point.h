// A point on a display, in pixels.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct Point {
    kelo::optional<int> x;
    kelo::optional<int> y;
};
constexpr auto recordTable(const Point*) {
    using kelo::record::Row;
    return kelo::record::Table<Point, Row<"x", &Point::x>, Row<"y", &Point::y>>{"Point"};
}
static_assert(kelo::record::covers<Point>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Point& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Point& value);

}  // namespace kelo::hmx::inputregions
