#include "hmx/inputregions/haptic_region.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticRegion& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticRegion& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
