// What the system promises, and the driver that tests each promise: declared once, for running, listing and documents.
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
    // Does not work together with sanitizers: it needs the faults library, or it limits memory, of which they keep much, or it
    // runs without free descriptors, and then UBSan takes every object for a broken one, because it checks memory through a
    // pipe.
    bool isBareOnly = false;
};

std::span<const Promise> promises();

}  // namespace campaign
