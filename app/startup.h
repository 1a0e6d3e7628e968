// The process, from its command line to its end.
#pragma once

#include <chrono>
#include <functional>

#include "kelo/runtime/kelo_runtime.h"

namespace hmx {

// The exit status, for the shell or the init system.
enum ExitStatus : int { exitOk = 0, exitFailure = 1, exitUsage = 2 };

// Runs the process and returns its exit status. The only arguments are `--help` and `--version`, which print and return; any
// other is refused before anything starts. Thread: main.
int run(int argc, const char* const* argv) noexcept;

// Builds everything on a runtime that has been started: the workers, then one upstream service after the other, waiting for each,
// then the resources of "/hmx". Calls `park` when clients can reach them. Takes everything down when `park` returns or something
// throws. Thread: main.
void serve(kelo::runtime::IKeloRuntime& runtime, const std::function<void()>& park);

// Waits for ever. Thread: main.
void parkForEver();

// Calls `body` and returns exitOk. If it throws, logs the exception, flushes the log, waits for `pause` so that it can get out,
// and returns exitFailure.
int guarded(const std::function<void()>& body, std::chrono::milliseconds pause = std::chrono::seconds{1}) noexcept;

// Sleeps for the whole duration, even if signals arrive. Thread: any.
void sleepFor(std::chrono::milliseconds duration) noexcept;

}  // namespace hmx
