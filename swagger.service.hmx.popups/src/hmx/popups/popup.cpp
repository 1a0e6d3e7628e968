#include "hmx/popups/popup.h"

namespace kelo::hmx::popups {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Popup& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Popup& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::popups
