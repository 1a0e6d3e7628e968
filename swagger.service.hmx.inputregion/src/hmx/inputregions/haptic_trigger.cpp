#include "hmx/inputregions/haptic_trigger.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticTrigger& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticTrigger& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
