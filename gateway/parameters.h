// The query of a retrieve as the parameters that the service takes, typed by the resource's record.
#pragma once

#include "hmx/client/document.h"
#include "hmx/client/resources.h"
#include "target.h"

namespace hmxgateway {

enum class Asked : unsigned char { list, element, watch };

// Null when there are none. Errors: hmx::client::Error, invalid: a key that there is not, or that has no effect on an element or
// a watch, a value of the wrong type. Thread: any.
[[nodiscard]] hmx::client::Json parametersFrom(const Target::Query& query, const hmx::client::Resource& resource, Asked asked);

}  // namespace hmxgateway
