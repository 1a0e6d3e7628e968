// What the system promises, and the driver that tests each promise. Declared once, for running, listing and the documents.
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
    // Does not work with sanitizers. Reasons: it needs the faults library; it limits memory, of which sanitizers use much; or it
    // runs without free descriptors, where UBSan considers every object invalid, because it checks memory through a pipe.
    bool isBareOnly = false;
};

std::span<const Promise> promises();

}  // namespace campaign
