// The end of an error that nobody handled.
#pragma once

namespace kelo {

// Gives the calling thread's stored error, if there is one, to the error storage's action and consumes it. For where a piece of
// work is over, and with it every chance to handle what it left. Thread: any.
void disposeOfUnhandledError() noexcept;

}  // namespace kelo
