// Creates the serialisers of the framework's three structured encodings.
#pragma once

#include <memory>

#include "kelo/mimetypes.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Thread: any.
class Factory {
public:
    // Null, with nothing recorded, if the type has no structured encoding.
    static std::unique_ptr<util::serializer::IStructuredSerializer> createSerializer(mimetypes::MimeTypeID id);
    static std::unique_ptr<util::serializer::IStructuredPullDeserializer> createDeserializer(mimetypes::MimeTypeID id);
};

}  // namespace kelo::serializer
