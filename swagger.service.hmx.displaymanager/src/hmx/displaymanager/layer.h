// A layer of a display, as the display manager reports it.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct Layer {
    int id = 0;
    kelo::optional<std::string> name;
    kelo::optional<bool> active;
    kelo::optional<int> zpos;
};
constexpr auto recordTable(const Layer*) {
    using kelo::record::Row;
    return kelo::record::Table<Layer, Row<"id", &Layer::id>, Row<"name", &Layer::name>, Row<"active", &Layer::active>,
                               Row<"zpos", &Layer::zpos>>{"Layer"};
}
static_assert(kelo::record::covers<Layer>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Layer& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Layer& value);

}  // namespace kelo::hmx::displaymanager
