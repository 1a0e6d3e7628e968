#include "hmx/haptic_region_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticRegionType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticRegionType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
