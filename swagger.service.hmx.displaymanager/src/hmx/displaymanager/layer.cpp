#include "hmx/displaymanager/layer.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Layer& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Layer& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
