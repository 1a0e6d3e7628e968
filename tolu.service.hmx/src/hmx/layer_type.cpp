#include "hmx/layer_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
