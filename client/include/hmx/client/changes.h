// What differs between two states of a resource.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hmx/client/document.h"

namespace hmx::client {

// Thread: any (a value).
struct ElementChange {
    enum class Kind : std::uint8_t { added, changed, removed };
    Kind kind = Kind::changed;
    Json element{};                      // as it is now; as it was, if removed
    std::vector<std::string> members{};  // changed: those that are new, gone or other than before
};

// Elements are the same if their "id" is; of several with one id, the first is the same as the first, and so on. Added and
// changed ones first, in the order of `now`, then the removed ones. Thread: any.
[[nodiscard]] std::vector<ElementChange> changesBetween(const std::vector<Json>& before, const std::vector<Json>& now);

}  // namespace hmx::client
