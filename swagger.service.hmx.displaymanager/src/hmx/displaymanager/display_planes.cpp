#include "hmx/displaymanager/display_planes.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayPlanes& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayPlanes& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
