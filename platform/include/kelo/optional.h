// The optional type of all record members. It is the one of the library fundamentals TS because the text of its exception on
// reading an empty one, "Attempt to access value of a disengaged optional object", is part of the system's interface.
#pragma once

#include <experimental/optional>

namespace kelo {

template <class T>
using optional = std::experimental::optional<T>;
using std::experimental::nullopt;

}  // namespace kelo
