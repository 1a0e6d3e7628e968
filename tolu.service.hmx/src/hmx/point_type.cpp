#include "hmx/point_type.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PointType& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PointType& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
