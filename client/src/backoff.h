// How soon what has failed or ended is asked for again.
#pragma once

#include <algorithm>
#include <chrono>

namespace hmx::client::backoff {

inline constexpr std::chrono::milliseconds shortest{20};
inline constexpr std::chrono::milliseconds longest{400};
// After a stream that its service has ended.
inline constexpr std::chrono::milliseconds afterEnd{1000};
// How long one attempt to find a service, and the element there, may take before it counts as failed.
inline constexpr std::chrono::milliseconds attempt{2000};

// The pause after a failure; `last` is the one before, 0 the first time.
constexpr std::chrono::milliseconds next(std::chrono::milliseconds last) {
    return std::clamp(last * 2, shortest, longest);
}

}  // namespace hmx::client::backoff
