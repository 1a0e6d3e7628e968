#include "kelo/std/global_error_handler.h"

#include <unistd.h>

#include <cstdlib>

#include "tracing/output.h"
#include "util/line_buffer.h"

namespace std {

void GlobalErrorHandler::doAbort(const char* file, const char* function, const char* message) noexcept {
    util::LineBuffer line;
    line.append(file);
    line.append(":");
    line.append(function);
    line.append(": ");
    line.appendEscaped(message);
    (void)line.writeTo(STDERR_FILENO);
    (void)tracing::output::toSink(file, 4, message);
    abort();
}

}  // namespace std
