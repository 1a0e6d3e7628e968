// An element type for tests that apply to every resource.
#pragma once

#include <memory>
#include <string>

#include "kelo/record.h"
#include "kelo/tolu/xobject.h"
#include "kelo/uuid.h"

namespace support {

struct Element : kelo::tolu::XObject {
    kelo::optional<std::string> colour;
    kelo::optional<int> size;
};
constexpr auto recordTable(const Element*) {
    using kelo::record::Row;
    return kelo::record::Table<Element, Row<"id", &Element::id>, Row<"name", &Element::name>, Row<"uri", &Element::uri>,
                               Row<"colour", &Element::colour>, Row<"size", &Element::size>>{"Element"};
}
inline bool serialize(kelo::serializer::IStructuredSerializer& writer, const Element& value) {
    return kelo::record::write(writer, value);
}
inline bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Element& value) {
    return kelo::record::read(reader, value);
}

inline std::shared_ptr<Element> element(const std::string& name, kelo::optional<int> size = {},
                                        kelo::optional<std::string> colour = {}) {
    auto result = std::make_shared<Element>();
    result->id = kelo::uuid::createFromName(name);
    result->name = name;
    result->size = size;
    result->colour = colour;
    return result;
}

}  // namespace support
