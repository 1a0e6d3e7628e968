#include "hmx/displayable_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
