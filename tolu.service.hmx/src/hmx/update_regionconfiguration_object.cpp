#include "hmx/update_regionconfiguration_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const UpdateRegionconfigurationObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, UpdateRegionconfigurationObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
