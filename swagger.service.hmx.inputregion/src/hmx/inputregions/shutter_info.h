// Whether the shutter of a display is closed.
#pragma once

#include "hmx/inputregions/status.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::inputregions {

// Thread: any (a value).
struct ShutterInfo {
    kelo::optional<bool> shutterActive;
    kelo::optional<Status> status;
};
constexpr auto recordTable(const ShutterInfo*) {
    using kelo::record::Row;
    return kelo::record::Table<ShutterInfo, Row<"shutterActive", &ShutterInfo::shutterActive>,
                               Row<"status", &ShutterInfo::status>>{"ShutterInfo"};
}
static_assert(kelo::record::covers<ShutterInfo>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const ShutterInfo& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, ShutterInfo& value);

}  // namespace kelo::hmx::inputregions
