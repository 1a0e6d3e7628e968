// "Did you mean": the nearest of the names that would have been right.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hmx::client {

// The candidates near enough to `word` to be meant, nearest first, at most three. Thread: any.
[[nodiscard]] std::vector<std::string> nearMatches(std::string_view word, const std::vector<std::string>& candidates);

// "did you mean 'a' or 'b'?", or "" when nothing is near.
[[nodiscard]] std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

// "a, b, c".
[[nodiscard]] std::string joined(const std::vector<std::string>& words, std::string_view divider = ", ");

}  // namespace hmx::client
