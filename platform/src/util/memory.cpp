#include "util/memory.h"

#include <malloc.h>

namespace util {

void returnFreedMemory() noexcept {
    ::malloc_trim(0);
}

}  // namespace util
