// What all parts of a runtime use.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kelo/limits.h"
#include "net/descriptor.h"
#include "net/fair_share.h"
#include "net/loop.h"
#include "net/turns.h"
#include "policy/policy_source.h"
#include "runtime/counters.h"

namespace kelo::runtime {

// Outlives every part. Thread: any; constant after construction, except the counters and the loop, which are thread-safe, and the
// domain.
struct Context {
    net::Loop& loop;  // the runtime's own; trackers, publications and everything in the directory belong to its thread
    std::string directory;
    std::string applicationName;
    std::string mimeTypes;  // this process's, in order of preference, separated by commas
    Limits limits;
    Counters& counters;
    std::shared_ptr<net::Shares> shares;    // for all clients of the process
    policy::PolicySource policy;            // Thread: the runtime's, as for the next two
    std::optional<net::Turns> turns{};      // of users; from the start to the stop
    std::function<void()> policyChanged{};  // has everything follow the current policy, in a turn of its own
    // The directory, open and checked to be safe; empty while there is none. Everything in it is accessed through this
    // descriptor, never by the directory's name, which may lead elsewhere by then. Thread: the runtime's.
    net::Descriptor domain{};
    // Called when a service has come or gone, whether tracked or published. May be empty. Thread: the runtime's.
    std::function<void()> changed{};

    void noteChange() const {
        if (changed) changed();
    }
};

}  // namespace kelo::runtime
