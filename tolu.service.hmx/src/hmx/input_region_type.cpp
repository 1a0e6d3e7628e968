#include "hmx/input_region_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InputRegionType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InputRegionType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
