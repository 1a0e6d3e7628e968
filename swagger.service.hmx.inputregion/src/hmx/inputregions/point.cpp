#include "hmx/inputregions/point.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Point& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Point& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
