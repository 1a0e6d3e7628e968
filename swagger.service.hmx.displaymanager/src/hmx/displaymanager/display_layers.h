// A display and its layers.
#pragma once

#include <memory>

#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/layer_list.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayLayers {
    std::shared_ptr<Display> display;
    kelo::optional<LayerList> layers;
};
constexpr auto recordTable(const DisplayLayers*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayLayers, Row<"display", &DisplayLayers::display>, Row<"layers", &DisplayLayers::layers>>{
        "DisplayLayers"};
}
static_assert(kelo::record::covers<DisplayLayers>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayLayers& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayLayers& value);

}  // namespace kelo::hmx::displaymanager
