// A region that answers a touch with haptic feedback.
#pragma once

#include <memory>

#include "hmx/rectangle_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct HapticRegionType {
    kelo::optional<std::shared_ptr<RectangleType>> bounds;
    kelo::optional<int> hapticFeedback;
    kelo::optional<int> hapticRegion;
};
constexpr auto recordTable(const HapticRegionType*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticRegionType, Row<"bounds", &HapticRegionType::bounds>,
                               Row<"hapticFeedback", &HapticRegionType::hapticFeedback>,
                               Row<"hapticRegion", &HapticRegionType::hapticRegion>>{"HapticRegionType"};
}
static_assert(kelo::record::covers<HapticRegionType>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticRegionType& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticRegionType& value);

}  // namespace kelo::hmx
