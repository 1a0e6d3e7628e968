#include "hmx/inputregions/rectangle.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Rectangle& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Rectangle& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
