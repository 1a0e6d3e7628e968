// What the system promises, and the driver that holds it to each: declared once, for running, listing and documents.
#pragma once

#include <span>
#include <string_view>

#include "harness/report.h"
#include "harness/scope.h"

namespace campaign {

struct Promise {
    std::string_view name;
    std::string_view text;
    void (*drive)(const Scope& scope, Random& random, Report& report);
    // It does not go together with sanitizers: driven by the faults library, or in want of descriptors, without which UBSan takes
    // every object for a broken one, since it looks at memory through a pipe.
    bool isBareOnly = false;
};

std::span<const Promise> promises();

}  // namespace campaign
