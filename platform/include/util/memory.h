// Memory as the operating system sees it.
#pragma once

namespace util {

// Returns freed memory to the operating system, as far as the C library holds whole pages of it. Takes up to some milliseconds,
// so it must not be called while a request is handled. Thread: any.
void returnFreedMemory() noexcept;

}  // namespace util
