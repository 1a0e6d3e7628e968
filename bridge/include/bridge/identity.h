// The identity of an element.
#pragma once

#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx {

// Does not change while the element exists. Thread: any (a value).
struct Identity {
    std::UUID id;
    kelo::url uri;
};

}  // namespace hmx
