// The process from its command line to its end.
#pragma once

#include <chrono>
#include <functional>

#include "kelo/runtime/kelo_runtime.h"

namespace hmx {

// Status for the shell or the init system.
enum ExitStatus : int { exitOk = 0, exitFailure = 1, exitUsage = 2 };

// The whole process; returns its exit status. Takes no arguments but `--help` and `--version`, which print and return; any other
// is refused before anything starts. Thread: main.
int run(int argc, const char* const* argv) noexcept;

// Builds all that the process consists of on a runtime that is started: the workers, then one upstream service after the other,
// each waited for, then the resources under "/hmx"; calls `park` when clients can reach them, and takes everything down when that
// returns or something is thrown. Thread: main.
void serve(kelo::runtime::IKeloRuntime& runtime, const std::function<void()>& park);

// Waits, in normal life for ever. Thread: main.
void parkForEver();

// Calls `body` and returns exitOk. What it throws is logged, the log is flushed and given `pause` to get out before exitFailure
// is returned.
int guarded(const std::function<void()>& body, std::chrono::milliseconds pause = std::chrono::seconds{1}) noexcept;

// Sleeps for the whole of the time, signals or not. Thread: any.
void sleepFor(std::chrono::milliseconds duration) noexcept;

}  // namespace hmx
