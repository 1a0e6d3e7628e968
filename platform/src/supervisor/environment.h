// What the supervisor has told the process in its environment.
#pragma once

#include <cstdint>

namespace kelo::supervisor {

// The number in a variable; -1 if the variable is not set, or no number. Thread: any.
[[nodiscard]] std::int64_t environmentNumber(const char* variable) noexcept;

}  // namespace kelo::supervisor
