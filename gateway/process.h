// The process around the gateway.
#pragma once

namespace hmxgateway {

// From the command line to the exit status.
[[nodiscard]] int runProcess(int argc, char** argv);

}  // namespace hmxgateway
