// The signals with which a supervisor directs a process.
#pragma once

namespace kelo::supervisor {

// Leaves SIGTERM and SIGHUP to the process's runtime (kelo/runtime/kelo_runtime.h): the first one ends the process with status 0,
// the second one has it read its settings again. Until the runtime has been started, they wait. Thread: main, before there are
// other threads.
void leaveSignalsToRuntime() noexcept;

}  // namespace kelo::supervisor
