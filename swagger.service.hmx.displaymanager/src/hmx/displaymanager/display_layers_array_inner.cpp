#include "hmx/displaymanager/display_layers_array_inner.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayLayersArrayInner& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayLayersArrayInner& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
