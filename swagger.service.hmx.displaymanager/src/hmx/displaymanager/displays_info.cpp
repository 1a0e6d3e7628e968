#include "hmx/displaymanager/displays_info.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplaysInfo& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplaysInfo& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
