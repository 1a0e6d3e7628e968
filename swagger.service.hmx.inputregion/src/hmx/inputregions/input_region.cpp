#include "hmx/inputregions/input_region.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InputRegion& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InputRegion& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
