// A display, as the resource "/displays" shows it.
#pragma once

#include <memory>
#include <string>

#include "core/list_page.h"
#include "hmx/display_resolution_type.h"
#include "hmx/element.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// The members of a DisplayObject beyond those that every element has.
struct DisplayObjectMembers {
    kelo::optional<std::string> connector;
    kelo::optional<int> displayID;
    kelo::optional<int> displayInternalID;
    kelo::optional<std::shared_ptr<DisplayResolutionType>> resolution;
    kelo::optional<int> terminal;
    kelo::optional<bool> touchSupport;
};
// Thread: any (a value).
struct DisplayObject : Element<"/displays">, DisplayObjectMembers {
    using Element::Element;
};
constexpr auto recordTable(const DisplayObject*) {
    using kelo::record::Row;
    return ElementTable<DisplayObject, Row<"connector", &DisplayObject::connector>, Row<"displayID", &DisplayObject::displayID>,
                        Row<"displayInternalID", &DisplayObject::displayInternalID>,
                        Row<"resolution", &DisplayObject::resolution>, Row<"terminal", &DisplayObject::terminal>,
                        Row<"touchSupport", &DisplayObject::touchSupport>>{"DisplayObject"};
}
static_assert(kelo::record::covers<DisplayObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayObject& value);

using DisplayObjectListPage = kelo::tolu::ListPage<DisplayObject>;

}  // namespace kelo::hmx
