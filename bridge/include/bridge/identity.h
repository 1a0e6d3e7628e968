// What an element is known by.
#pragma once

#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx {

// Stays the same for the life of the element. Thread: any (a value).
struct Identity {
    std::UUID id;
    kelo::url uri;
};

}  // namespace hmx
