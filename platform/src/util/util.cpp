#include "util/util.h"

#include <sys/prctl.h>

#include <utility>

#include "tracing/client_helper.h"
#include "tracing/output.h"
#include "tracing/sink_module.h"

namespace util {

namespace {

// Never destroyed: lines may still be written when the process exits.
std::string& storedName() {
    static auto* const name = new std::string{program_invocation_short_name};
    return *name;
}

}  // namespace

Util::Guard::Guard(Guard&& other) noexcept : active_{std::exchange(other.active_, false)} {}

Util::Guard::~Guard() {
    if (!active_) return;
    tracing::client_helper::getClient().flush(true);
    tracing::sink_module::close();
}

Util::Guard Util::init(std::string_view applicationName, bool tracing, bool /*reservedConfig*/, bool nameProcess,
                       bool /*reservedWatchdog*/) {
    storedName() = applicationName;
    tracing::output::setEnabled(tracing);
    if (tracing) tracing::sink_module::open();
    if (nameProcess) prctl(PR_SET_NAME, storedName().c_str());
    return {};
}

const std::string& Util::applicationName() noexcept {
    return storedName();
}

}  // namespace util
