// A rectangle on a display, in pixels.
#pragma once

#include <memory>

#include "hmx/inputregions/point.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct Rectangle {
    std::shared_ptr<Point> pointMin;  // the corner nearest to the origin
    kelo::optional<int> width;
    kelo::optional<int> height;
};
constexpr auto recordTable(const Rectangle*) {
    using kelo::record::Row;
    return kelo::record::Table<Rectangle, Row<"pointMin", &Rectangle::pointMin>, Row<"width", &Rectangle::width>,
                               Row<"height", &Rectangle::height>>{"Rectangle"};
}
static_assert(kelo::record::covers<Rectangle>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Rectangle& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Rectangle& value);

}  // namespace kelo::hmx::inputregions
