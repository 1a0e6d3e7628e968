// All displays.
#pragma once

#include <vector>

#include "hmx/displaymanager/display.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplaysInfo {
    kelo::optional<std::vector<Display>> infoForAllDisplays;
};
constexpr auto recordTable(const DisplaysInfo*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplaysInfo, Row<"infoForAllDisplays", &DisplaysInfo::infoForAllDisplays>>{"DisplaysInfo"};
}
static_assert(kelo::record::covers<DisplaysInfo>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplaysInfo& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplaysInfo& value);

}  // namespace kelo::hmx::displaymanager
