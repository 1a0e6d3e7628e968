#include "hmx/inputregions/haptic_and_input_info_per_layer.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerLayer& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerLayer& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
