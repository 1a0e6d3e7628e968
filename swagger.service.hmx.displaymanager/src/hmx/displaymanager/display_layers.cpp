#include "hmx/displaymanager/display_layers.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayLayers& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayLayers& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
