// The size of a displayable in pixels.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayableSize {
    kelo::optional<int> width;
    kelo::optional<int> height;
};
constexpr auto recordTable(const DisplayableSize*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayableSize, Row<"width", &DisplayableSize::width>, Row<"height", &DisplayableSize::height>>{
        "DisplayableSize"};
}
static_assert(kelo::record::covers<DisplayableSize>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableSize& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableSize& value);

}  // namespace kelo::hmx::displaymanager
