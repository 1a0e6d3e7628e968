// The haptic and input regions of one HMI, layer by layer.
#pragma once

#include <memory>
#include <vector>

#include "hmx/haptic_and_input_info_per_layer_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct HapticAndInputInfoPerHMIType {
    kelo::optional<std::vector<std::shared_ptr<HapticAndInputInfoPerLayerType>>> infoForAllLayers;
};
constexpr auto recordTable(const HapticAndInputInfoPerHMIType*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticAndInputInfoPerHMIType,
                               Row<"infoForAllLayers", &HapticAndInputInfoPerHMIType::infoForAllLayers>>{
        "HapticAndInputInfoPerHMIType"};
}
static_assert(kelo::record::covers<HapticAndInputInfoPerHMIType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerHMIType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerHMIType& value);

}  // namespace kelo::hmx
