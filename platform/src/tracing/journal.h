// The journal of the init system, if standard error leads there.
#pragma once

#include "util/line_buffer.h"

namespace tracing::journal {

// Whether standard error leads to the journal now. Thread: any.
[[nodiscard]] bool isStandardError() noexcept;

// Begins a line of a level with the priority by which the journal sorts it: "<3>" for failures to "<7>" for progress. Thread:
// any.
void appendPriority(util::LineBuffer& line, int level) noexcept;

}  // namespace tracing::journal
