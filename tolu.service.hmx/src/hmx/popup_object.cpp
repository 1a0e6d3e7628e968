#include "hmx/popup_object.h"

namespace kelo::hmx {

bool serialize(kelo::serializer::IStructuredSerializer& writer, const PopupObject& value) {
    return kelo::record::write(writer, value);
}

bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, PopupObject& value) {
    return kelo::record::read(reader, value);
}

}  // namespace kelo::hmx
