// Any bytes as msgpack.
#include "walk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::walkWithPrefixes(fuzz::MimeTypeID::msgpack, {data, size});
    return 0;
}
