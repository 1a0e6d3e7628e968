#include "hmx/displaymanager/displayable_update.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayableUpdate& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayableUpdate& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
