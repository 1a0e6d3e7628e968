#include "bridge/kept_region.h"

namespace hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const KeptRegion& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, KeptRegion& value) {
    return kelo::record::read(reader, value);
}

}  // namespace hmx
