// What can be changed about a display.
#pragma once

#include <memory>

#include "hmx/displaymanager/screenshot.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayUpdate {
    kelo::optional<bool> compositing;
    kelo::optional<int> updateRate;
    std::shared_ptr<Screenshot> takeScreenshot;
};
constexpr auto recordTable(const DisplayUpdate*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayUpdate, Row<"compositing", &DisplayUpdate::compositing>,
                               Row<"updateRate", &DisplayUpdate::updateRate>,
                               Row<"takeScreenshot", &DisplayUpdate::takeScreenshot>>{"DisplayUpdate"};
}
static_assert(kelo::record::covers<DisplayUpdate>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayUpdate& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayUpdate& value);

}  // namespace kelo::hmx::displaymanager
