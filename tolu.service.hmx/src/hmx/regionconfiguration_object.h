// The regions that an HMI, or a subcomponent of it, has on a display, as the resource "/regionconfigurations" shows them.
#pragma once

#include <memory>
#include <string>

#include "hmx/element.h"
#include "hmx/haptic_and_input_info_per_hmi_type.h"
#include "hmx/regionconfiguration_object_display_enum.h"
#include "hmx/regionconfiguration_object_hmi_enum.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// The members of a RegionconfigurationObject beyond those that every element has.
struct RegionconfigurationObjectMembers {
    kelo::optional<RegionconfigurationObjectDisplayEnum> display;
    kelo::optional<RegionconfigurationObjectHmiEnum> hmi;
    kelo::optional<std::shared_ptr<HapticAndInputInfoPerHMIType>> regions;
    kelo::optional<std::string> subComponent;
};
// Thread: any (a value).
struct RegionconfigurationObject : Element<"/regionconfigurations">, RegionconfigurationObjectMembers {
    using Element::Element;
};
constexpr auto recordTable(const RegionconfigurationObject*) {
    using kelo::record::Row;
    return ElementTable<RegionconfigurationObject, Row<"display", &RegionconfigurationObject::display>,
                        Row<"hmi", &RegionconfigurationObject::hmi>, Row<"regions", &RegionconfigurationObject::regions>,
                        Row<"subComponent", &RegionconfigurationObject::subComponent>>{"RegionconfigurationObject"};
}
static_assert(kelo::record::covers<RegionconfigurationObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const RegionconfigurationObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, RegionconfigurationObject& value);

}  // namespace kelo::hmx
