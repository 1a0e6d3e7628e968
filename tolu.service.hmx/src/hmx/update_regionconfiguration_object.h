// What a client can change about a region configuration.
#pragma once

#include <memory>

#include "hmx/haptic_and_input_info_per_hmi_type.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct UpdateRegionconfigurationObject {
    std::shared_ptr<HapticAndInputInfoPerHMIType> regions;
};
constexpr auto recordTable(const UpdateRegionconfigurationObject*) {
    using kelo::record::Row;
    return kelo::record::Table<UpdateRegionconfigurationObject,
                               Row<"regions", &UpdateRegionconfigurationObject::regions, kelo::record::required>>{
        "UpdateRegionconfigurationObject"};
}
static_assert(kelo::record::covers<UpdateRegionconfigurationObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const UpdateRegionconfigurationObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, UpdateRegionconfigurationObject& value);

}  // namespace kelo::hmx
