// Whether a display senses force.
#pragma once

#include "hmx/inputregions/status.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct ForceInfo {
    kelo::optional<bool> forceSupported;
    kelo::optional<Status> status;
};
constexpr auto recordTable(const ForceInfo*) {
    using kelo::record::Row;
    return kelo::record::Table<ForceInfo, Row<"forceSupported", &ForceInfo::forceSupported>, Row<"status", &ForceInfo::status>>{
        "ForceInfo"};
}
static_assert(kelo::record::covers<ForceInfo>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const ForceInfo& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, ForceInfo& value);

}  // namespace kelo::hmx::inputregions
