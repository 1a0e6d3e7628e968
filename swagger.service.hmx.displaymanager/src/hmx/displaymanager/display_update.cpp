#include "hmx/displaymanager/display_update.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayUpdate& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayUpdate& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
