// The gauges belong to the process, not to a runtime: every status shows all of them.
#include "kelo/gauge.h"

#include <mutex>
#include <set>

namespace kelo {
namespace {

// Never destroyed: gauges may be static objects.
struct Registry {
    std::mutex mutex;
    std::set<const Gauge*> gauges;  // guarded by mutex
};

Registry& registry() {
    static auto& instance = *new Registry;
    return instance;
}

}  // namespace

Gauge::Gauge(const char* name) : name_{name} {
    const std::lock_guard lock{registry().mutex};
    registry().gauges.insert(this);
}

Gauge::~Gauge() {
    const std::lock_guard lock{registry().mutex};
    registry().gauges.erase(this);
}

std::map<std::string_view, std::int64_t> readGauges() {
    std::map<std::string_view, std::int64_t> sums;
    const std::lock_guard lock{registry().mutex};
    for (const Gauge* gauge : registry().gauges) sums[gauge->name_] += gauge->value();
    return sums;
}

}  // namespace kelo
