#include "hmx/update_popup_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const UpdatePopupObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, UpdatePopupObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
