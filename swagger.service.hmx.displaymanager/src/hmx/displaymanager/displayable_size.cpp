#include "hmx/displaymanager/displayable_size.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableSize& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableSize& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
