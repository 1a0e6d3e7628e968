// Names of four characters for channels and applications, for log systems that have no longer ones.
#pragma once

#include <array>
#include <string_view>

namespace tracing {

// Ends with a zero byte. Thread: any (a value).
using ShortId = std::array<char, 5>;

// The initials of the name's last two words (of a single word, its first two letters) and two characters of the whole name's
// hash: "BP" and "4X", say, for HMX_TOLU_BRIDGE_POPUPS. It depends on nothing but the name, so it never changes. `attempt`: the
// next candidates, for a name whose id another name of the same process has already.
[[nodiscard]] ShortId shortId(std::string_view name, unsigned attempt = 0) noexcept;

// The first candidate for which `isTaken` is false.
template <class IsTaken>
ShortId freeShortId(std::string_view name, IsTaken isTaken) {
    unsigned attempt = 0;
    while (isTaken(shortId(name, attempt))) ++attempt;
    return shortId(name, attempt);
}

}  // namespace tracing
