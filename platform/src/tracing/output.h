// Internal parts of the tracing output.
#pragma once

namespace tracing::output {

// Whether lines are written at all; initially true. Thread: any.
void setEnabled(bool enabled) noexcept;

// Passes a line to the sink; false if none is set. Thread: any.
bool toSink(const char* channel, int level, const char* text) noexcept;

// Writes a line to standard error. Thread: any.
void toStandardError(const char* channel, int level, const char* text) noexcept;

}  // namespace tracing::output
