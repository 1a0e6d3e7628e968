// Memory as the system sees it.
#pragma once

namespace util {

// Gives freed memory back to the system, as far as the C library holds on to whole pages of it. Takes up to some milliseconds:
// not for a request's road. Thread: any.
void returnFreedMemory() noexcept;

}  // namespace util
