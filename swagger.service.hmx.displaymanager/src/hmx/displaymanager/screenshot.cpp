#include "hmx/displaymanager/screenshot.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Screenshot& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Screenshot& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
