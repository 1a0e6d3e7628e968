// What can be changed about a popup.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::popups {

// Thread: any (a value).
struct PopupStateUpdate {
    kelo::optional<bool> requested;
    kelo::optional<bool> visible;
    kelo::optional<std::string> requestData;
};
constexpr auto recordTable(const PopupStateUpdate*) {
    using kelo::record::Row;
    return kelo::record::Table<PopupStateUpdate, Row<"requested", &PopupStateUpdate::requested>,
                               Row<"visible", &PopupStateUpdate::visible>, Row<"requestData", &PopupStateUpdate::requestData>>{
        "PopupStateUpdate"};
}
static_assert(kelo::record::covers<PopupStateUpdate>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupStateUpdate& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupStateUpdate& value);

}  // namespace kelo::hmx::popups
