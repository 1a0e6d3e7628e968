#include "kelo/tracing.h"

#include <unistd.h>

#include "util/util.h"

namespace kelo::tracing {

const std::string& getTraceClientId() {
    static const auto* const id = new std::string{util::Util::applicationName() + "-" + std::to_string(getpid())};
    return *id;
}

}  // namespace kelo::tracing
