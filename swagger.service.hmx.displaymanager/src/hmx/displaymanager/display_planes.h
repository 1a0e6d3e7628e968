// The scan-out plane of a display.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayPlanes {
    kelo::optional<float> alpha;
    kelo::optional<int> type;
    kelo::optional<int> zpos;
};
constexpr auto recordTable(const DisplayPlanes*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayPlanes, Row<"alpha", &DisplayPlanes::alpha>, Row<"type", &DisplayPlanes::type>,
                               Row<"zpos", &DisplayPlanes::zpos>>{"DisplayPlanes"};
}
static_assert(kelo::record::covers<DisplayPlanes>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayPlanes& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayPlanes& value);

}  // namespace kelo::hmx::displaymanager
