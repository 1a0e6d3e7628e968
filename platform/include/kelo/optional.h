// The optional of every record member. The library-fundamentals type is kept because the text of its exception on reading an
// empty one, "Attempt to access value of a disengaged optional object", is one that the system promises.
#pragma once

#include <experimental/optional>

namespace kelo {

template <class T>
using optional = std::experimental::optional<T>;
using std::experimental::nullopt;

}  // namespace kelo
