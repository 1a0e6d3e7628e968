#include "hmx/inputregions/force_info.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const ForceInfo& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, ForceInfo& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
