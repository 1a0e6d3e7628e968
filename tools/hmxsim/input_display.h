// What the simulated input manager knows of a display.
#pragma once

#include <string>
#include <vector>

#include "hmx/inputregions/force_info.h"
#include "hmx/inputregions/haptic_and_input_info_per_layer.h"
#include "hmx/inputregions/haptic_trigger.h"
#include "hmx/inputregions/shutter_info.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace hmxsim {

// The regions that one HMI, or one component of it, has on a display. Thread: any (a value).
struct HmiRegions {
    std::string hmi;
    kelo::optional<std::string> subComponent;
    std::vector<kelo::hmx::inputregions::HapticAndInputInfoPerLayer> infoForAllLayers;
};
constexpr auto recordTable(const HmiRegions*) {
    using kelo::record::Row;
    return kelo::record::Table<HmiRegions, Row<"hmi", &HmiRegions::hmi>, Row<"subComponent", &HmiRegions::subComponent>,
                               Row<"infoForAllLayers", &HmiRegions::infoForAllLayers>>{"HmiRegions"};
}
static_assert(kelo::record::covers<HmiRegions>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HmiRegions& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HmiRegions& value);

// Thread: any (a value).
struct InputDisplay {
    std::string name;
    kelo::optional<bool> power;
    kelo::optional<bool> proximity;
    kelo::optional<kelo::hmx::inputregions::ShutterInfo> shutter;
    kelo::optional<kelo::hmx::inputregions::ForceInfo> force;
    kelo::optional<kelo::hmx::inputregions::HapticTrigger> lastHaptic;
    kelo::optional<std::vector<HmiRegions>> regions;
};
constexpr auto recordTable(const InputDisplay*) {
    using kelo::record::Row;
    return kelo::record::Table<InputDisplay, Row<"name", &InputDisplay::name>, Row<"power", &InputDisplay::power>,
                               Row<"proximity", &InputDisplay::proximity>, Row<"shutter", &InputDisplay::shutter>,
                               Row<"force", &InputDisplay::force>, Row<"lastHaptic", &InputDisplay::lastHaptic>,
                               Row<"regions", &InputDisplay::regions>>{"InputDisplay"};
}
static_assert(kelo::record::covers<InputDisplay>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InputDisplay& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InputDisplay& value);

// Gives every input region of the display that has no id one that no other has.
void assignRegionIds(InputDisplay& display);

}  // namespace hmxsim
