// kelo::tolu::XObject: the members that every element of a resource has.
#pragma once

#include <string>
#include <utility>

#include "kelo/optional.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace kelo::tolu {

// Base of every element type. Derived types add only optional members. Thread: any (a value).
struct XObject {
    XObject() = default;
    XObject(const std::UUID& elementId, kelo::url elementUri) : id{elementId}, uri{std::move(elementUri)} {}
    XObject(const XObject&) = default;
    XObject(XObject&&) noexcept = default;
    XObject& operator=(const XObject&) = default;
    XObject& operator=(XObject&&) noexcept = default;
    virtual ~XObject() = default;

    std::UUID id;      // always present
    kelo::url uri;     // always present
    std::string name;  // always present, may be empty
};

}  // namespace kelo::tolu
