// The inside of the tracing output.
#pragma once

namespace tracing::output {

// Whether lines are written at all; true at first. Thread: any.
void setEnabled(bool enabled) noexcept;

// Gives a line to the sink; false when none is set. Thread: any.
bool toSink(const char* channel, int level, const char* text) noexcept;

}  // namespace tracing::output
