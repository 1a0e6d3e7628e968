// The video mode timings of a display.
#pragma once

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct DisplayTimings {
    kelo::optional<int> flags;
    kelo::optional<int> hskew;
    kelo::optional<int> hsync_start;
    kelo::optional<int> hsync_end;
    kelo::optional<int> htotal;
    kelo::optional<int> vrefresh;
    kelo::optional<int> vscan;
    kelo::optional<int> vsync_start;
    kelo::optional<int> vsync_end;
    kelo::optional<int> vtotal;
};
constexpr auto recordTable(const DisplayTimings*) {
    using kelo::record::Row;
    return kelo::record::Table<DisplayTimings, Row<"flags", &DisplayTimings::flags>, Row<"hskew", &DisplayTimings::hskew>,
                               Row<"hsync_start", &DisplayTimings::hsync_start>, Row<"hsync_end", &DisplayTimings::hsync_end>,
                               Row<"htotal", &DisplayTimings::htotal>, Row<"vrefresh", &DisplayTimings::vrefresh>,
                               Row<"vscan", &DisplayTimings::vscan>, Row<"vsync_start", &DisplayTimings::vsync_start>,
                               Row<"vsync_end", &DisplayTimings::vsync_end>, Row<"vtotal", &DisplayTimings::vtotal>>{
        "DisplayTimings"};
}
static_assert(kelo::record::covers<DisplayTimings>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayTimings& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayTimings& value);

}  // namespace kelo::hmx::displaymanager
