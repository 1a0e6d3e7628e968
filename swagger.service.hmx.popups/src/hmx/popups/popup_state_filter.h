// Which popups to list: those that have every state that is set here.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::popups {

// Thread: any (a value).
struct PopupStateFilter {
    kelo::optional<std::string> slot;
    kelo::optional<bool> isFullscreen;
    kelo::optional<bool> requested;
    kelo::optional<bool> active;
    kelo::optional<bool> visible;
    kelo::optional<bool> wakeupFromOnNoDisplay;
    kelo::optional<bool> wakeupFromStandby;
    kelo::optional<bool> wakeupFromStandbyRestricted;
};
constexpr auto recordTable(const PopupStateFilter*) {
    using kelo::record::Row;
    return kelo::record::Table<
        PopupStateFilter, Row<"slot", &PopupStateFilter::slot>, Row<"isFullscreen", &PopupStateFilter::isFullscreen>,
        Row<"requested", &PopupStateFilter::requested>, Row<"active", &PopupStateFilter::active>,
        Row<"visible", &PopupStateFilter::visible>, Row<"wakeupFromOnNoDisplay", &PopupStateFilter::wakeupFromOnNoDisplay>,
        Row<"wakeupFromStandby", &PopupStateFilter::wakeupFromStandby>,
        Row<"wakeupFromStandbyRestricted", &PopupStateFilter::wakeupFromStandbyRestricted>>{"PopupStateFilter"};
}
static_assert(kelo::record::covers<PopupStateFilter>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupStateFilter& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupStateFilter& value);

}  // namespace kelo::hmx::popups
