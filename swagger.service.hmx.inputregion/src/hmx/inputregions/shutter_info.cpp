#include "hmx/inputregions/shutter_info.h"

namespace kelo::hmx::inputregions {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const ShutterInfo& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, ShutterInfo& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::inputregions
