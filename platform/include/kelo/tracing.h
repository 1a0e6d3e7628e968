// The id under which this process's requests can be traced.
#pragma once

#include <string>

namespace kelo::tracing {

// "<application name>-<pid>", fixed at the first call. Thread: any.
const std::string& getTraceClientId();

}  // namespace kelo::tracing
