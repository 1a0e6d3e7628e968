#include "hmx/haptic_and_input_info_per_layer_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerLayerType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerLayerType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
