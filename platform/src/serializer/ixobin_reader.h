// Reads the binary form "application/vnd.ixobin", which is CBOR.
#pragma once

#include "serializer/binary_reader.h"

namespace kelo::serializer {

// Thread: one at a time.
class IxobinReader final : public BinaryReader {
public:
    IxobinReader() noexcept : BinaryReader{{.head = 0x60, .limit = 24}} {}

private:
    struct DecodedItem;

    const char* decode(BinaryItem& item) override;
    // Joins the chunks of a string of indefinite length; `at` is the offset after its start.
    const char* joinPieces(bool isText, std::size_t at, BinaryItem& item);
};

}  // namespace kelo::serializer
