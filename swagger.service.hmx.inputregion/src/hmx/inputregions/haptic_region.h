// A region that answers a touch with haptic feedback.
#pragma once

#include <memory>
#include <string>

#include "hmx/inputregions/rectangle.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct HapticRegion {
    kelo::optional<int> hapticRegion;
    kelo::optional<std::string> hmiName;
    kelo::optional<std::string> layer;
    std::shared_ptr<Rectangle> bounds;
    kelo::optional<int> hapticFeedback;
};
constexpr auto recordTable(const HapticRegion*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticRegion, Row<"hapticRegion", &HapticRegion::hapticRegion>,
                               Row<"hmiName", &HapticRegion::hmiName>, Row<"layer", &HapticRegion::layer>,
                               Row<"bounds", &HapticRegion::bounds>, Row<"hapticFeedback", &HapticRegion::hapticFeedback>>{
        "HapticRegion"};
}
static_assert(kelo::record::covers<HapticRegion>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticRegion& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticRegion& value);

}  // namespace kelo::hmx::inputregions
