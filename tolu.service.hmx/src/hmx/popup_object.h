// A popup and its state, as the resource "/popups" shows it.
#pragma once

#include <string>

#include "core/list_page.h"
#include "hmx/element.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// The members of a PopupObject beyond those that every element has.
struct PopupObjectMembers {
    kelo::optional<bool> active;
    kelo::optional<std::string> display;
    kelo::optional<bool> isFullscreen;
    kelo::optional<std::string> popupLayerCompositing;
    kelo::optional<std::string> popupLayerLogical;
    kelo::optional<bool> preventAnimation;
    kelo::optional<int> priorityInlayer;
    kelo::optional<std::string> requestData;
    kelo::optional<bool> requested;
    kelo::optional<std::string> slot;
    kelo::optional<bool> suppressed;
    kelo::optional<bool> visible;
};
// Thread: any (a value).
struct PopupObject : Element<"/popups">, PopupObjectMembers {
    using Element::Element;
};
constexpr auto recordTable(const PopupObject*) {
    using kelo::record::Row;
    return ElementTable<
        PopupObject, Row<"active", &PopupObject::active>, Row<"display", &PopupObject::display>,
        Row<"isFullscreen", &PopupObject::isFullscreen>, Row<"popupLayerCompositing", &PopupObject::popupLayerCompositing>,
        Row<"popupLayerLogical", &PopupObject::popupLayerLogical>, Row<"preventAnimation", &PopupObject::preventAnimation>,
        Row<"priorityInlayer", &PopupObject::priorityInlayer>, Row<"requestData", &PopupObject::requestData>,
        Row<"requested", &PopupObject::requested>, Row<"slot", &PopupObject::slot>, Row<"suppressed", &PopupObject::suppressed>,
        Row<"visible", &PopupObject::visible>>{"PopupObject"};
}
static_assert(kelo::record::covers<PopupObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupObject& value);

using PopupObjectListPage = kelo::tolu::ListPage<PopupObject>;

}  // namespace kelo::hmx
