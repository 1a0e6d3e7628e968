#include "hmx/popups/popup_state_update.h"

namespace kelo::hmx::popups {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupStateUpdate& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupStateUpdate& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::popups
