// The smallest provider: publishes one service whose resource "/r" echoes, tells when it is published, and waits to be killed.
#pragma once

#include <string>

namespace campaign {

// Never returns but for a failing start. Writes "PID published" and "PID withdrawn", one line each.
int provide(const std::string& servicePath);

}  // namespace campaign
