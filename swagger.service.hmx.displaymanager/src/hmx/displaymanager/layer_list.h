// The layers of one display.
#pragma once

#include <memory>
#include <vector>

#include "hmx/displaymanager/layer.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct LayerList {
    kelo::optional<std::vector<std::shared_ptr<Layer>>> infoForAllLayers;
};
constexpr auto recordTable(const LayerList*) {
    using kelo::record::Row;
    return kelo::record::Table<LayerList, Row<"infoForAllLayers", &LayerList::infoForAllLayers>>{"LayerList"};
}
static_assert(kelo::record::covers<LayerList>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerList& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerList& value);

}  // namespace kelo::hmx::displaymanager
