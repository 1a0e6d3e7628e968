// The identity under which this process's requests can be traced.
#pragma once

#include <string>

namespace kelo::tracing {

// "<application name>-<pid>", made once. Thread: any.
const std::string& getTraceClientId();

}  // namespace kelo::tracing
