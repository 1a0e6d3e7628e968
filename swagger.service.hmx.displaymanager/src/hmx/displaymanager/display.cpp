#include "hmx/displaymanager/display.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Display& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Display& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
