// The regions of all layers of an HMI, or of one subcomponent of it.
#pragma once

#include <string>
#include <vector>

#include "hmx/inputregions/haptic_and_input_info_per_layer.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct HapticAndInputInfoPerHMI {
    kelo::optional<std::string> subComponent;
    std::vector<HapticAndInputInfoPerLayer> infoForAllLayers;  // always written: an empty list clears the regions
};
constexpr auto recordTable(const HapticAndInputInfoPerHMI*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticAndInputInfoPerHMI, Row<"subComponent", &HapticAndInputInfoPerHMI::subComponent>,
                               Row<"infoForAllLayers", &HapticAndInputInfoPerHMI::infoForAllLayers>>{"HapticAndInputInfoPerHMI"};
}
static_assert(kelo::record::covers<HapticAndInputInfoPerHMI>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerHMI& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerHMI& value);

}  // namespace kelo::hmx::inputregions
