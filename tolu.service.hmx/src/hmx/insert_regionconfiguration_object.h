// A region configuration that a client inserts.
#pragma once

#include <memory>
#include <string>

#include "hmx/haptic_and_input_info_per_hmi_type.h"
#include "hmx/regionconfiguration_object_display_enum.h"
#include "hmx/regionconfiguration_object_hmi_enum.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct InsertRegionconfigurationObject {
    RegionconfigurationObjectDisplayEnum display{};
    RegionconfigurationObjectHmiEnum hmi{};
    std::shared_ptr<HapticAndInputInfoPerHMIType> regions;
    kelo::optional<std::string> subComponent;
};
constexpr auto recordTable(const InsertRegionconfigurationObject*) {
    using kelo::record::Row;
    return kelo::record::Table<InsertRegionconfigurationObject, Row<"display", &InsertRegionconfigurationObject::display>,
                               Row<"hmi", &InsertRegionconfigurationObject::hmi>,
                               Row<"regions", &InsertRegionconfigurationObject::regions, kelo::record::required>,
                               Row<"subComponent", &InsertRegionconfigurationObject::subComponent>>{
        "InsertRegionconfigurationObject"};
}
static_assert(kelo::record::covers<InsertRegionconfigurationObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InsertRegionconfigurationObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InsertRegionconfigurationObject& value);

}  // namespace kelo::hmx
