// The process around export and import.
#pragma once

namespace hmxrelay {

// From the command line to the exit status. Thread: main.
[[nodiscard]] int runProcess(int argc, char** argv);

}  // namespace hmxrelay
