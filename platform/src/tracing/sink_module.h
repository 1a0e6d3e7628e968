// The sink that KELO_TRACE_SINK asks for.
#pragma once

namespace tracing::sink_module {

// Loads the module that $KELO_TRACE_SINK names, if any, and passes all lines to it from now on. If that fails, one line says why,
// and lines go to standard error as before. Thread: main, once the application has its name.
void open();

// Has the sink pass on what it holds, in half a second at most; later lines go to standard error. Does nothing the second time.
// Thread: any.
void close() noexcept;

// Tells the sink which thresholds are others than it knows. Thread: any.
void thresholdsChanged();

// What a sink has called when it wants the state of the process logged; null for nothing. When this returns, no call of the
// previous function is under way. Thread: any; the function is called on a thread of the sink.
void setStatusDump(void (*dump)(void* context), void* context) noexcept;

}  // namespace tracing::sink_module
