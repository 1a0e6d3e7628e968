// The haptic and input regions of one layer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hmx/haptic_region_type.h"
#include "hmx/input_region_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct HapticAndInputInfoPerLayerType {
    kelo::optional<std::vector<std::shared_ptr<HapticRegionType>>> hapticRegions;
    kelo::optional<std::vector<std::shared_ptr<InputRegionType>>> inputRegions;
    kelo::optional<std::string> layer;
};
constexpr auto recordTable(const HapticAndInputInfoPerLayerType*) {
    using kelo::record::Row;
    return kelo::record::Table<
        HapticAndInputInfoPerLayerType, Row<"hapticRegions", &HapticAndInputInfoPerLayerType::hapticRegions>,
        Row<"inputRegions", &HapticAndInputInfoPerLayerType::inputRegions>, Row<"layer", &HapticAndInputInfoPerLayerType::layer>>{
        "HapticAndInputInfoPerLayerType"};
}
static_assert(kelo::record::covers<HapticAndInputInfoPerLayerType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerLayerType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerLayerType& value);

}  // namespace kelo::hmx
