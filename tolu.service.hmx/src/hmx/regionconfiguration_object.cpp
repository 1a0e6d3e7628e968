#include "hmx/regionconfiguration_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const RegionconfigurationObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, RegionconfigurationObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
