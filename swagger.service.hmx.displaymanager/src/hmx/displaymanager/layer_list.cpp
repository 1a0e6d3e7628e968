#include "hmx/displaymanager/layer_list.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerList& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerList& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
