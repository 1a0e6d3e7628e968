// One entry of the list of all displays' layers.
#pragma once

#include "hmx/displaymanager/display_layers.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayLayersArrayInner {
    kelo::optional<DisplayLayers> layersForDisplay;
};
constexpr auto recordTable(const DisplayLayersArrayInner*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayLayersArrayInner, Row<"layersForDisplay", &DisplayLayersArrayInner::layersForDisplay>>{
        "DisplayLayersArrayInner"};
}
static_assert(kelo::record::covers<DisplayLayersArrayInner>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayLayersArrayInner& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayLayersArrayInner& value);

}  // namespace kelo::hmx::displaymanager
