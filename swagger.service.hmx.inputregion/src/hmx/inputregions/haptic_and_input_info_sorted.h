// The regions of a display in the order in which touches are matched against them.
#pragma once

#include <vector>

#include "hmx/inputregions/haptic_region.h"
#include "hmx/inputregions/input_region.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct HapticAndInputInfoSorted {
    kelo::optional<std::vector<InputRegion>> regionInfoSorted;
    kelo::optional<std::vector<HapticRegion>> hapticInfoSorted;
};
constexpr auto recordTable(const HapticAndInputInfoSorted*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticAndInputInfoSorted, Row<"regionInfoSorted", &HapticAndInputInfoSorted::regionInfoSorted>,
                               Row<"hapticInfoSorted", &HapticAndInputInfoSorted::hapticInfoSorted>>{"HapticAndInputInfoSorted"};
}
static_assert(kelo::record::covers<HapticAndInputInfoSorted>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoSorted& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoSorted& value);

}  // namespace kelo::hmx::inputregions
