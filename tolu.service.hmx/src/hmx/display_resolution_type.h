// The size of a display or displayable in pixels.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct DisplayResolutionType {
    kelo::optional<int> height;
    kelo::optional<int> width;
};
constexpr auto recordTable(const DisplayResolutionType*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayResolutionType, Row<"height", &DisplayResolutionType::height>,
                               Row<"width", &DisplayResolutionType::width>>{"DisplayResolutionType"};
}
static_assert(kelo::record::covers<DisplayResolutionType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayResolutionType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayResolutionType& value);

}  // namespace kelo::hmx
