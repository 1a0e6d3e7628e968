#include "hmx/displaymanager/displayables_info.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayablesInfo& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayablesInfo& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
