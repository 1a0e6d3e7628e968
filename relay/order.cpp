// The elements that keep their numbers are a longest ascending run among those that have one. The others get numbers between
// their neighbours', evenly spread. When there is no room between two, all get new ones.
#include "order.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace hmxrelay {
namespace {

constexpr std::uint64_t step = std::uint64_t{1} << 24U;

// Indices of a longest strictly ascending subsequence of the numbers.
std::vector<std::size_t> longestAscending(const std::vector<std::optional<std::uint64_t>>& numbers) {
    std::vector<std::size_t> ends;  // of the runs of each length, the one with the smallest last number
    std::vector<std::size_t> previous(numbers.size(), numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (!numbers[i]) continue;
        const auto place = std::lower_bound(ends.begin(), ends.end(), *numbers[i],
                                            [&](std::size_t end, std::uint64_t n) { return *numbers[end] < n; });
        if (place != ends.begin()) previous[i] = *std::prev(place);
        if (place == ends.end()) {
            ends.push_back(i);
        } else {
            *place = i;
        }
    }
    std::vector<std::size_t> run(ends.size());
    for (std::size_t i = ends.empty() ? numbers.size() : ends.back(), at = run.size(); at > 0; i = previous[i]) run[--at] = i;
    return run;
}

std::vector<std::uint64_t> evenly(std::size_t count) {
    std::vector<std::uint64_t> numbers(count);
    for (std::size_t i = 0; i < count; ++i) numbers[i] = (i + 1) * step;
    return numbers;
}

}  // namespace

std::vector<std::uint64_t> positionsFor(const std::vector<std::optional<std::uint64_t>>& before) {
    std::vector<std::uint64_t> numbers(before.size());
    std::size_t next = 0;     // the first that has no number yet
    std::uint64_t below = 0;  // the number before it
    for (const std::size_t kept : longestAscending(before)) {
        const std::uint64_t above = *before[kept];
        const std::uint64_t gap = (above - below) / (kept - next + 1);
        if (gap == 0) return evenly(before.size());
        for (std::uint64_t number = below; next < kept; ++next) numbers[next] = number += gap;
        numbers[next++] = below = above;
    }
    if (below > std::numeric_limits<std::uint64_t>::max() - (before.size() + 1) * step) return evenly(before.size());
    for (; next < before.size(); ++next) numbers[next] = below += step;
    return numbers;
}

}  // namespace hmxrelay
