// What outlives the bridge of a region configuration.
#pragma once

#include <memory>
#include <string>

#include "hmx/regionconfiguration_object.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace hmx {

// Thread: any (a value).
struct KeptRegion {
    // Where the configuration applies, in the input manager's names.
    std::string display;
    std::string hmi;
    std::string subComponent;
    // The configuration; absent if none is shown, but the input manager may have regions there.
    kelo::optional<std::shared_ptr<kelo::hmx::RegionconfigurationObject>> object;
};
constexpr auto recordTable(const KeptRegion*) {
    using kelo::record::Row;
    return kelo::record::Table<KeptRegion, Row<"display", &KeptRegion::display>, Row<"hmi", &KeptRegion::hmi>,
                               Row<"subComponent", &KeptRegion::subComponent>, Row<"object", &KeptRegion::object>>{"KeptRegion"};
}
static_assert(kelo::record::covers<KeptRegion>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const KeptRegion& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, KeptRegion& value);

}  // namespace hmx
