#include "hmx/insert_regionconfiguration_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const InsertRegionconfigurationObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, InsertRegionconfigurationObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
