// Records of every shape that tables may have, for the tests of operations on tables.
#pragma once

#include "kelo/record.h"
#include "kelo/tolu/xobject.h"

namespace sample {

using kelo::record::required;
using kelo::record::Row;
using kelo::serializer::IStructuredPullDeserializer;
using kelo::serializer::IStructuredSerializer;

enum class Side : std::uint8_t { left, right };
constexpr auto enumNames(Side) {
    return std::array<std::string_view, 2>{"Left_Side", "Right_Side"};
}

enum class Status : std::uint8_t { init, ok, error };
constexpr auto enumNames(Status) {
    return std::array<std::string_view, 3>{"STATUS_INIT", "STATUS_OK", "STATUS_ERROR"};  // not sorted
}

struct Point {
    kelo::optional<int> x;
    kelo::optional<int> y;
};
constexpr auto recordTable(const Point*) {
    return kelo::record::Table<Point, Row<"x", &Point::x>, Row<"y", &Point::y>>{"Point"};
}
static_assert(kelo::record::covers<Point>);

struct Layer {
    int id = 0;
    kelo::optional<std::string> name;
    kelo::optional<float> alpha;
    kelo::optional<std::shared_ptr<Point>> origin;
    kelo::optional<Status> status;
};
constexpr auto recordTable(const Layer*) {
    return kelo::record::Table<Layer, Row<"id", &Layer::id>, Row<"name", &Layer::name>, Row<"alpha", &Layer::alpha>,
                               Row<"origin", &Layer::origin>, Row<"status", &Layer::status>>{"Layer"};
}
static_assert(kelo::record::covers<Layer>);

struct ElementMembers {
    kelo::optional<bool> active;
    kelo::optional<std::vector<std::shared_ptr<Layer>>> layers;
    std::shared_ptr<Point> position;
    kelo::optional<int> priority;
    kelo::optional<Side> side;
    kelo::optional<std::vector<std::string>> tags;
};
struct Element : kelo::tolu::XObject, ElementMembers {
    using XObject::XObject;
};
constexpr auto recordTable(const Element*) {
    return kelo::record::Table<Element, Row<"id", &Element::id>, Row<"name", &Element::name>, Row<"uri", &Element::uri>,
                               Row<"active", &Element::active>, Row<"layers", &Element::layers>,
                               Row<"position", &Element::position>, Row<"priority", &Element::priority>,
                               Row<"side", &Element::side>, Row<"tags", &Element::tags>>{"Element"};
}
static_assert(kelo::record::covers<Element>);

struct Insert {
    Side side = Side::left;
    std::shared_ptr<Layer> layer;
    std::vector<Point> points;
    kelo::optional<kelo::toluglobals::RequestHint> next;
};
constexpr auto recordTable(const Insert*) {
    return kelo::record::Table<Insert, Row<"side", &Insert::side>, Row<"layer", &Insert::layer, required>,
                               Row<"points", &Insert::points>, Row<"next", &Insert::next>>{"Insert"};
}
static_assert(kelo::record::covers<Insert>);

bool serialize(IStructuredSerializer& writer, const Point& value);
bool serialize(IStructuredSerializer& writer, const Layer& value);
bool serialize(IStructuredSerializer& writer, const Element& value);
bool serialize(IStructuredSerializer& writer, const Insert& value);
bool deserialize(IStructuredPullDeserializer& reader, Point& value);
bool deserialize(IStructuredPullDeserializer& reader, Layer& value);
bool deserialize(IStructuredPullDeserializer& reader, Element& value);
bool deserialize(IStructuredPullDeserializer& reader, Insert& value);

// An element with every member set.
Element fullElement();

}  // namespace sample
