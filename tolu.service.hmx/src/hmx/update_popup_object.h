// What a client can change about a popup.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// Thread: any (a value).
struct UpdatePopupObject {
    kelo::optional<std::string> requestData;
    kelo::optional<bool> requested;
    kelo::optional<bool> visible;
};
constexpr auto recordTable(const UpdatePopupObject*) {
    using kelo::record::Row;
    return kelo::record::Table<UpdatePopupObject, Row<"requestData", &UpdatePopupObject::requestData>,
                               Row<"requested", &UpdatePopupObject::requested>, Row<"visible", &UpdatePopupObject::visible>>{
        "UpdatePopupObject"};
}
static_assert(kelo::record::covers<UpdatePopupObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const UpdatePopupObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, UpdatePopupObject& value);

}  // namespace kelo::hmx
