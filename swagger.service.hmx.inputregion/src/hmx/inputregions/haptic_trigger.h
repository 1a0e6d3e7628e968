// A haptic feedback to be given.
#pragma once

#include <memory>

#include "hmx/inputregions/point.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct HapticTrigger {
    kelo::optional<bool> hapticTone;
    kelo::optional<bool> hapticTactile;
    kelo::optional<int> hapticFeedback;
    std::shared_ptr<Point> point;
};
constexpr auto recordTable(const HapticTrigger*) {
    using kelo::record::Row;
    return kelo::record::Table<HapticTrigger, Row<"hapticTone", &HapticTrigger::hapticTone>,
                               Row<"hapticTactile", &HapticTrigger::hapticTactile>,
                               Row<"hapticFeedback", &HapticTrigger::hapticFeedback>, Row<"point", &HapticTrigger::point>>{
        "HapticTrigger"};
}
static_assert(kelo::record::covers<HapticTrigger>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticTrigger& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticTrigger& value);

}  // namespace kelo::hmx::inputregions
