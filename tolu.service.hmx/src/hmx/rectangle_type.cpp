#include "hmx/rectangle_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const RectangleType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, RectangleType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
