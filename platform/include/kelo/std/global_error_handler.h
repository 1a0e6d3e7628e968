// Ends the process after a fault that nothing can handle.
#pragma once

namespace std {

class GlobalErrorHandler {
public:
    // Writes "file:function: message" to standard error and the tracing output, then aborts the process. Thread: any.
    [[noreturn]] static void doAbort(const char* file, const char* function, const char* message) noexcept;
};

}  // namespace std
