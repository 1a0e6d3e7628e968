// Any bytes as "application/vnd.ixobin".
#include "walk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::walkWithPrefixes(fuzz::MimeTypeID::ixobin, {data, size});
    return 0;
}
