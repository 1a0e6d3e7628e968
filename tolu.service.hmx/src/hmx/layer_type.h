// A layer of a display.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct LayerType {
    kelo::optional<int> id;  // the number of the layer, not the id of an element
    kelo::optional<std::string> name;
    kelo::optional<int> zpos;  // a higher one is in front
};
constexpr auto recordTable(const LayerType*) {
    using kelo::record::Row;
    return kelo::record::Table<LayerType, Row<"id", &LayerType::id>, Row<"name", &LayerType::name>,
                               Row<"zpos", &LayerType::zpos>>{"LayerType"};
}
static_assert(kelo::record::covers<LayerType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerType& value);

}  // namespace kelo::hmx
