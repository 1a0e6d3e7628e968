// The layers of one display, as the resource "/layerconfigurations" shows them.
#pragma once

#include <memory>
#include <vector>

#include "core/list_page.h"
#include "hmx/element.h"
#include "hmx/layer_type.h"
#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx {

// The members of a LayerconfigurationObject beyond those that every element has.
struct LayerconfigurationObjectMembers {
    kelo::optional<std::vector<std::shared_ptr<LayerType>>> layers;
};
// Thread: any (a value).
struct LayerconfigurationObject : Element<"/layerconfigurations">, LayerconfigurationObjectMembers {
    using Element::Element;
};
constexpr auto recordTable(const LayerconfigurationObject*) {
    using kelo::record::Row;
    return ElementTable<LayerconfigurationObject, Row<"layers", &LayerconfigurationObject::layers>>{"LayerconfigurationObject"};
}
static_assert(kelo::record::covers<LayerconfigurationObject>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerconfigurationObject& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerconfigurationObject& value);

using LayerconfigurationObjectListPage = kelo::tolu::ListPage<LayerconfigurationObject>;

}  // namespace kelo::hmx
