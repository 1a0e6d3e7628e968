// The process around the commands: all of `main`, so that it is compiled with the rest.
#pragma once

namespace hmxctl {

// Its exit status. Thread: main.
[[nodiscard]] int runProcess(int argc, char** argv);

}  // namespace hmxctl
