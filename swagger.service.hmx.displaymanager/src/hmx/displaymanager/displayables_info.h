// All displayables.
#pragma once

#include <vector>

#include "hmx/displaymanager/displayable.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayablesInfo {
    kelo::optional<std::vector<Displayable>> infoForAllDisplayables;
};
constexpr auto recordTable(const DisplayablesInfo*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayablesInfo, Row<"infoForAllDisplayables", &DisplayablesInfo::infoForAllDisplayables>>{
        "DisplayablesInfo"};
}
static_assert(kelo::record::covers<DisplayablesInfo>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayablesInfo& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayablesInfo& value);

}  // namespace kelo::hmx::displaymanager
