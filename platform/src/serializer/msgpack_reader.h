// Reads msgpack.
#pragma once

#include "serializer/binary_reader.h"

namespace kelo::serializer {

// Thread: one at a time.
class MsgpackReader final : public BinaryReader {
private:
    const char* decode(BinaryItem& item) override;
};

}  // namespace kelo::serializer
