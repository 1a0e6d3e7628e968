// A popup, as the popup manager reports it.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::popups {

// Thread: any (a value).
struct Popup {
    std::string name;
    kelo::optional<std::string> popupLayerLogical;
    kelo::optional<int> priorityInlayer;
    kelo::optional<std::string> popupLayerCompositing;
    kelo::optional<std::string> slot;
    kelo::optional<bool> isFullscreen;
    kelo::optional<bool> requested;
    kelo::optional<bool> suppressed;
    kelo::optional<bool> active;
    kelo::optional<bool> visible;
    kelo::optional<bool> preventAnimation;
    kelo::optional<std::string> requestData;
    kelo::optional<bool> wakeupFromOnNoDisplay;
    kelo::optional<bool> wakeupFromStandby;
    kelo::optional<bool> wakeupFromStandbyRestricted;
};
constexpr auto recordTable(const Popup*) {
    using kelo::record::Row;
    return kelo::record::Table<
        Popup, Row<"name", &Popup::name>, Row<"popupLayerLogical", &Popup::popupLayerLogical>,
        Row<"priorityInlayer", &Popup::priorityInlayer>, Row<"popupLayerCompositing", &Popup::popupLayerCompositing>,
        Row<"slot", &Popup::slot>, Row<"isFullscreen", &Popup::isFullscreen>, Row<"requested", &Popup::requested>,
        Row<"suppressed", &Popup::suppressed>, Row<"active", &Popup::active>, Row<"visible", &Popup::visible>,
        Row<"preventAnimation", &Popup::preventAnimation>, Row<"requestData", &Popup::requestData>,
        Row<"wakeupFromOnNoDisplay", &Popup::wakeupFromOnNoDisplay>, Row<"wakeupFromStandby", &Popup::wakeupFromStandby>,
        Row<"wakeupFromStandbyRestricted", &Popup::wakeupFromStandbyRestricted>>{"Popup"};
}
static_assert(kelo::record::covers<Popup>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Popup& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Popup& value);

}  // namespace kelo::hmx::popups
