// What can be changed about a displayable.
#pragma once

#include <vector>

#include "hmx/displaymanager/layer.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayableUpdate {
    kelo::optional<bool> is_visible;
    kelo::optional<std::vector<Layer>> layers;
};
constexpr auto recordTable(const DisplayableUpdate*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayableUpdate, Row<"is_visible", &DisplayableUpdate::is_visible>,
                               Row<"layers", &DisplayableUpdate::layers>>{"DisplayableUpdate"};
}
static_assert(kelo::record::covers<DisplayableUpdate>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableUpdate& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableUpdate& value);

}  // namespace kelo::hmx::displaymanager
