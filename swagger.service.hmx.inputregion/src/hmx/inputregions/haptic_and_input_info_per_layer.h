// The regions of one layer.
#pragma once

#include <string>
#include <vector>

#include "hmx/inputregions/haptic_region.h"
#include "hmx/inputregions/input_region.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct HapticAndInputInfoPerLayer {
    kelo::optional<std::string> layer;
    kelo::optional<std::vector<InputRegion>> inputRegions;
    kelo::optional<std::vector<HapticRegion>> hapticRegions;
};
constexpr auto recordTable(const HapticAndInputInfoPerLayer*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticAndInputInfoPerLayer, Row<"layer", &HapticAndInputInfoPerLayer::layer>,
                               Row<"inputRegions", &HapticAndInputInfoPerLayer::inputRegions>,
                               Row<"hapticRegions", &HapticAndInputInfoPerLayer::hapticRegions>>{"HapticAndInputInfoPerLayer"};
}
static_assert(kelo::record::covers<HapticAndInputInfoPerLayer>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerLayer& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerLayer& value);

}  // namespace kelo::hmx::inputregions
