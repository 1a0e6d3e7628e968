// What differs between two states of a resource.
#pragma once

#include <string>
#include <vector>

#include "document.h"

namespace hmxctl {

// Thread: any (a value).
struct ElementChange {
    bool removed = false;
    Json element{};                      // as it is now; as it was, if removed
    std::vector<std::string> members{};  // that are new, gone or other than before; empty for an element that is new or removed
};

// Elements are the same if their "id" is; of several with one id, the first is the same as the first, and so on. Changed and new
// ones first, in the order of `now`, then the removed ones.
[[nodiscard]] std::vector<ElementChange> changesBetween(const std::vector<Json>& before, const std::vector<Json>& now);

}  // namespace hmxctl
