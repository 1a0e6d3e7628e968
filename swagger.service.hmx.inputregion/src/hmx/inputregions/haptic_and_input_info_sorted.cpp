#include "hmx/inputregions/haptic_and_input_info_sorted.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const HapticAndInputInfoSorted& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, HapticAndInputInfoSorted& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
