// What this program can do as a separate process, perhaps as another user: `hmxcampaign --ROLE ARGUMENT`.
#pragma once

#include <string>

namespace campaign {

// The smallest provider: publishes one service whose resource "/r" echoes, and waits to be killed. Writes "PID published" and
// "PID withdrawn", one line each.
int provide(const std::string& servicePath);
// The smallest client: 0 when the bridge at this socket answers it.
int ask(const std::string& socket);
// Listens at a socket's name, without asking whether that is its own, and says hello to whoever comes; waits to be killed.
int pose(const std::string& socket);

// The exit status of the role that the arguments name; -1 when they name none.
int play(int argc, const char* const* argv);

}  // namespace campaign
