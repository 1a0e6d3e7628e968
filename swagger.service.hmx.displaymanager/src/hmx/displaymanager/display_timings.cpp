#include "hmx/displaymanager/display_timings.h"

namespace kelo::hmx::displaymanager {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const DisplayTimings& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, DisplayTimings& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::displaymanager
