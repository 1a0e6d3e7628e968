// The roles of this program as a separate process, possibly as another user: `hmxcampaign --ROLE ARGUMENT`.
#pragma once

#include <string>

namespace campaign {

// A minimal provider: publishes one service whose resource "/r" echoes, and waits to be killed. Writes "PID published" and "PID
// withdrawn", one line each.
int provide(const std::string& servicePath);
// A minimal client: returns 0 if the bridge at this socket answers.
int ask(const std::string& socket);
// Listens at a socket's name, whoever's that is, and sends a hello to every client; waits to be killed.
int pose(const std::string& socket);

// Returns the exit status of the role that the arguments name; -1 if they name none.
int play(int argc, const char* const* argv);

}  // namespace campaign
