// A displayable: something that can be put on a layer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hmx/displaymanager/displayable_size.h"
#include "hmx/displaymanager/layer.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct Displayable {
    int id = 0;
    kelo::optional<std::string> name;
    kelo::optional<int> type;
    kelo::optional<DisplayableSize> size;
    kelo::optional<bool> is_active;
    kelo::optional<bool> is_visible;
    kelo::optional<std::vector<std::shared_ptr<Layer>>> layers;
};
constexpr auto recordTable(const Displayable*) {
    using kelo::record::Row;
    return kelo::record::Table<Displayable, Row<"id", &Displayable::id>, Row<"name", &Displayable::name>,
                               Row<"type", &Displayable::type>, Row<"size", &Displayable::size>,
                               Row<"is_active", &Displayable::is_active>, Row<"is_visible", &Displayable::is_visible>,
                               Row<"layers", &Displayable::layers>>{"Displayable"};
}
static_assert(kelo::record::covers<Displayable>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Displayable& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Displayable& value);

}  // namespace kelo::hmx::displaymanager
