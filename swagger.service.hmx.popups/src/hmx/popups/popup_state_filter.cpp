#include "hmx/popups/popup_state_filter.h"

namespace kelo::hmx::popups {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupStateFilter& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupStateFilter& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx::popups
