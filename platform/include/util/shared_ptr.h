// The framework's shared pointer.
#pragma once

#include <memory>

namespace util {

template <class T>
using SharedPtr = std::shared_ptr<T>;

}  // namespace util
