// What a runtime reports about itself below "/$platform/status".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kelo/limits.h"
#include "kelo/resource_handler.h"
#include "kelo/runtime/kelo_runtime.h"
#include "net/client_connection.h"
#include "net/server_connection.h"
#include "policy/policy.h"
#include "runtime/counters.h"

namespace kelo::runtime {

// The state at one moment. Thread: any (a value).
struct Status {
    struct Tracked {
        std::string path;
        KeloServiceTrackerInfo info;
        bool alive;
        net::ClientConnection::Usage usage;
    };
    struct Published {
        std::string path;
        bool reachable;
        std::vector<net::ServerConnection::Usage> clients;
    };

    struct PolicyState {
        std::string directory;
        std::shared_ptr<const policy::Policy> policy;
        std::string fault;  // the first one; empty if there is none
    };

    std::string application;
    std::string directory;
    Limits limits;
    PolicyState policy;
    std::vector<std::shared_ptr<const net::User>> users;  // if they have quotas
    std::vector<Tracked> tracked;
    std::vector<Published> published;
};

// Answers the request with the status in the encoding that it accepts. Thread: the runtime's.
void answerStatus(const Status& status, const Counters& counters, const Request& request, IResponder& responder);

}  // namespace kelo::runtime
