// The size of a display in pixels.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayResolution {
    kelo::optional<int> width;
    kelo::optional<int> height;
};
constexpr auto recordTable(const DisplayResolution*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayResolution, Row<"width", &DisplayResolution::width>,
                               Row<"height", &DisplayResolution::height>>{"DisplayResolution"};
}
static_assert(kelo::record::covers<DisplayResolution>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayResolution& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayResolution& value);

}  // namespace kelo::hmx::displaymanager
