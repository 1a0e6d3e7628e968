// Reports an error that nobody handled.
#pragma once

namespace kelo {

// Passes the calling thread's stored error, if any, to the error storage's action and consumes it. Called where a piece of work
// ends, because nothing can handle its errors after that. Thread: any.
void disposeOfUnhandledError() noexcept;

}  // namespace kelo
