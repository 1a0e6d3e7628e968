// A displayable, as the resource "/displayables" shows it.
#pragma once

#include <memory>

#include "core/list_page.h"
#include "hmx/display_resolution_type.h"
#include "hmx/element.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// The members of a DisplayableObject beyond those that every element has.
struct DisplayableObjectMembers {
    kelo::optional<int> displayableID;
    kelo::optional<std::shared_ptr<DisplayResolutionType>> size;
    kelo::optional<int> type;
};
// Thread: any (a value).
struct DisplayableObject : Element<"/displayables">, DisplayableObjectMembers {
    using Element::Element;
};
constexpr auto recordTable(const DisplayableObject*) {
    using kelo::record::Row;
    return ElementTable<DisplayableObject, Row<"displayableID", &DisplayableObject::displayableID>,
                        Row<"size", &DisplayableObject::size>, Row<"type", &DisplayableObject::type>>{"DisplayableObject"};
}
static_assert(kelo::record::covers<DisplayableObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableObject& value);

using DisplayableObjectListPage = kelo::tolu::ListPage<DisplayableObject>;

}  // namespace kelo::hmx
