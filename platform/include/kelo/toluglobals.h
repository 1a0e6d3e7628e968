// What the resource protocol's requests and pages have in common: parameters and paging hints.
#pragma once

#include <string>
#include <vector>

#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "util/config/value.h"

namespace kelo::toluglobals {

// The parsed parameters of a retrieve: one map on the wire. Every key stands in `values`; those that the protocol itself knows
// are also members, and only if they had the right type. Thread: any (a value).
struct ToluParams {
    util::config::Dictionary values;
    kelo::optional<std::vector<std::string>> fields;  // "fields": the optional members that the answer keeps
    kelo::optional<int> limit;                        // "limit": elements a page, at least 1
    kelo::optional<int> offset;                       // "offset": elements to leave out before the page, at least 0
    kelo::optional<std::UUID> offsetId;               // "offsetId": the page begins behind this element

    friend bool operator==(const ToluParams&, const ToluParams&) = default;
};

// Names a neighbouring page: an object with the members that are set. Thread: any (a value).
struct RequestHint {
    kelo::optional<int> limit;
    kelo::optional<int> offset;
    kelo::optional<std::UUID> offsetId;

    friend bool operator==(const RequestHint&, const RequestHint&) = default;
};

}  // namespace kelo::toluglobals
