// What the parts of one runtime share.
#pragma once

#include <memory>
#include <string>

#include "kelo/limits.h"
#include "net/descriptor.h"
#include "net/fair_share.h"
#include "net/loop.h"
#include "runtime/counters.h"

namespace kelo::runtime {

// Outlives every part. Thread: constant after construction but for the counters and the loop, which look after themselves.
struct Context {
    net::Loop& loop;  // the runtime's own: trackers, publications and everything in the directory belong to its thread
    std::string directory;
    std::string applicationName;
    std::string mimeTypes;  // this process's, in order of preference, divided by commas
    Limits limits;
    Counters& counters;
    std::shared_ptr<net::Shares> shares;  // of all clients of the process
    // The directory, open and found safe; empty while there is none that is. Everything in it is reached through this, never by
    // the directory's name, which may lead elsewhere by then. Thread: the runtime's.
    net::Descriptor domain{};
};

}  // namespace kelo::runtime
