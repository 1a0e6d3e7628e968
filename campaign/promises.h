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
    // By the faults library, which does not go together with sanitizers.
    bool isInjected = false;
};

std::span<const Promise> promises();

}  // namespace campaign
