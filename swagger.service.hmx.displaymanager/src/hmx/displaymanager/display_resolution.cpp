#include "hmx/displaymanager/display_resolution.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayResolution& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayResolution& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
