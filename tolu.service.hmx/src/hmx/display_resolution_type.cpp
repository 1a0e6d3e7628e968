#include "hmx/display_resolution_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayResolutionType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayResolutionType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
