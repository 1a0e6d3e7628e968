// Numbers by which the elements of a list are put in order, chosen so that few change when the list does.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace hmxrelay {

// For each element of a list its number, greater than that of the one before. `before`: the numbers that they have so far,
// nothing for new ones. As many as possible keep theirs. Thread: any.
[[nodiscard]] std::vector<std::uint64_t> positionsFor(const std::vector<std::optional<std::uint64_t>>& before);

}  // namespace hmxrelay
