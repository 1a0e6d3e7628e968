// Looks at a policy from outside; for tools.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/runtime/kelo_runtime.h"

namespace kelo::runtime {

// What a policy's files say. Thread: any (a value).
struct PolicyView {
    struct Rule {
        std::string place;  // "/etc/kelo/policy.d/10-apps.toml:12"
        bool allows = false;
        bool publishes = false;  // or it is about requests
        std::vector<std::string> users, groups, services, commands, paths;
    };

    std::string directory;
    bool isInForce = false;  // false: there is none, or it has faults
    bool audits = false;
    std::vector<Rule> rules;
    std::vector<std::string> faults;  // "FILE:LINE: what is wrong"
};

// The policy as a process that starts now would read it. Thread: any.
[[nodiscard]] PolicyView viewPolicy(const RuntimeOptions& options);

struct PolicyQuestion {
    std::string user;     // a name or a uid
    std::string service;  // the one that is asked; of "publish": the one that is published
    std::string command;  // of a request, or "publish"
    std::string path;
    uid_t provider = 0;  // the user that the service belongs to
};
struct PolicyAnswer {
    bool isAllowed = false;
    std::string rule;  // the place of the deciding rule; empty if no rule matches
};
// The answer of a policy without faults; nothing if there is no such user or command. Thread: any.
[[nodiscard]] std::optional<PolicyAnswer> askPolicy(const RuntimeOptions& options, const PolicyQuestion& question);

}  // namespace kelo::runtime
