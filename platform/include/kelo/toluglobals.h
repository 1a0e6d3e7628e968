// Parameters and paging hints, which all requests and pages of the resource protocol share.
#pragma once

#include <string>
#include <vector>

#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "util/config/value.h"

namespace kelo::toluglobals {

// The parameters of a retrieve or delete; on the wire, one map. `values` has the parameters by key, as far as the reader keeps
// them. Those that the protocol itself defines have members, which are empty if the parameter is absent or null. Thread: any (a
// value).
struct ToluParams {
    util::config::Dictionary values;
    kelo::optional<std::vector<std::string>> fields;  // "fields": the optional members that the answer keeps
    kelo::optional<int> limit;                        // "limit": elements per page, at least 1
    kelo::optional<int> offset;                       // "offset": elements to skip before the page, at least 0
    kelo::optional<std::UUID> offsetId;               // "offsetId": the page begins after this element

    friend bool operator==(const ToluParams&, const ToluParams&) = default;
};

// Identifies a neighbouring page; on the wire, an object with the members that are set. Thread: any (a value).
struct RequestHint {
    kelo::optional<int> limit;
    kelo::optional<int> offset;
    kelo::optional<std::UUID> offsetId;

    friend bool operator==(const RequestHint&, const RequestHint&) = default;
};

}  // namespace kelo::toluglobals
