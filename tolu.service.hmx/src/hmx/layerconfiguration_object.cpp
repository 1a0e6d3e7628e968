#include "hmx/layerconfiguration_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const LayerconfigurationObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, LayerconfigurationObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
