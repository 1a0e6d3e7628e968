#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoPerHMI& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoPerHMI& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
