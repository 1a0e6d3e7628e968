#include "platform/sample_records.h"

namespace sample {

bool serialize(IStructuredSerializer& writer, const Point& value) {
    return kelo::record::write(writer, value);
}
bool serialize(IStructuredSerializer& writer, const Layer& value) {
    return kelo::record::write(writer, value);
}
bool serialize(IStructuredSerializer& writer, const Element& value) {
    return kelo::record::write(writer, value);
}
bool serialize(IStructuredSerializer& writer, const Insert& value) {
    return kelo::record::write(writer, value);
}
bool deserialize(IStructuredPullDeserializer& reader, Point& value) {
    return kelo::record::read(reader, value);
}
bool deserialize(IStructuredPullDeserializer& reader, Layer& value) {
    return kelo::record::read(reader, value);
}
bool deserialize(IStructuredPullDeserializer& reader, Element& value) {
    return kelo::record::read(reader, value);
}
bool deserialize(IStructuredPullDeserializer& reader, Insert& value) {
    return kelo::record::read(reader, value);
}

Element fullElement() {
    std::UUID id;
    (void)std::UUID::parse("19243473-0126-5f4b-b1bf-4879152c72e5", id);
    Element element{id, kelo::url{"/hmx/x"}};
    element.name = "one";
    element.active = true;
    element.layers = std::vector{std::make_shared<Layer>(), std::make_shared<Layer>()};
    Layer& layer = *element.layers->front();
    layer.id = 7;
    layer.name = "cluster";
    layer.alpha = 0.1F;
    layer.origin = std::make_shared<Point>();
    (*layer.origin)->x = -1;
    layer.status = Status::error;
    element.position = std::make_shared<Point>();
    element.priority = 3;
    element.side = Side::right;
    element.tags = std::vector<std::string>{"a", "b"};
    return element;
}

}  // namespace sample
