#include "hmx/display_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
