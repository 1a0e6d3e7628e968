// The process around the simulated services: all of `main`, so that it is compiled with the rest.
#pragma once

namespace hmxsim {

// Its exit status. Thread: main.
[[nodiscard]] int runProcess(int argc, char** argv);

}  // namespace hmxsim
