#include "hmx/displaymanager/displayable.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Displayable& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Displayable& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
