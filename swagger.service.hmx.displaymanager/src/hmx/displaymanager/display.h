// A display, as the display manager reports it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hmx/displaymanager/display_planes.h"
#include "hmx/displaymanager/display_resolution.h"
#include "hmx/displaymanager/display_timings.h"
#include "hmx/displaymanager/layer.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct Display {
    int id = 0;
    kelo::optional<int> internalid;
    kelo::optional<std::string> name;
    kelo::optional<bool> touchSupport;
    kelo::optional<int> terminal;
    kelo::optional<bool> compositing;
    kelo::optional<DisplayResolution> resolution;
    kelo::optional<int> updateRate;
    kelo::optional<std::vector<std::shared_ptr<Layer>>> activelayers;
    std::shared_ptr<DisplayTimings> timings;  // large and rarely present: as a direct member, it would be most of a display
    kelo::optional<std::string> connector;
    kelo::optional<DisplayPlanes> planes;
};
constexpr auto recordTable(const Display*) {
    using kelo::record::Row;
    return kelo::record::Table<Display, Row<"id", &Display::id>, Row<"internalid", &Display::internalid>,
                               Row<"name", &Display::name>, Row<"touchSupport", &Display::touchSupport>,
                               Row<"terminal", &Display::terminal>, Row<"compositing", &Display::compositing>,
                               Row<"resolution", &Display::resolution>, Row<"updateRate", &Display::updateRate>,
                               Row<"activelayers", &Display::activelayers>, Row<"timings", &Display::timings>,
                               Row<"connector", &Display::connector>, Row<"planes", &Display::planes>>{"Display"};
}
static_assert(kelo::record::covers<Display>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Display& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Display& value);

}  // namespace kelo::hmx::displaymanager
