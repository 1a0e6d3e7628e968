// Reads msgpack.
#pragma once

#include "serializer/binary_reader.h"

namespace kelo::serializer {

// Thread: one at a time.
class MsgpackReader final : public BinaryReader {
public:
    MsgpackReader() noexcept : BinaryReader{{.head = 0xa0, .limit = 32}} {}

private:
    const char* decode(BinaryItem& item) override;
};

}  // namespace kelo::serializer
