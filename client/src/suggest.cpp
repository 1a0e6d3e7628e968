#include "hmx/client/suggest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace hmx::client {
namespace {

char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Edits between two words, letter case aside, a swap of neighbours counting as one.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> above(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) above[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        std::swap(before, above);
        std::swap(above, row);
    }
    return above[b.size()];
}

bool contains(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char a, char b) { return lower(a) == lower(b); }) !=
           text.end();
}

}  // namespace

std::vector<std::string> nearMatches(std::string_view word, const std::vector<std::string>& candidates) {
    constexpr std::size_t longestCompared = 128;
    if (word.empty() || word.size() > longestCompared) return {};
    std::vector<std::pair<std::size_t, std::string_view>> ranked;
    for (const std::string& candidate : candidates) {
        if (candidate.empty() || candidate.size() > longestCompared) continue;
        const std::size_t farthest = std::max<std::size_t>(1, word.size() / 3);
        std::size_t rank = distance(word, candidate);
        // A part of the name is the commonest slip: "Driver" for "Driver_Display".
        if (word.size() >= 3 && contains(candidate, word)) rank = std::min({rank, farthest, std::size_t{2}});
        if (rank <= farthest) ranked.emplace_back(rank, candidate);
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> nearest;
    for (const auto& [rank, name] : ranked) {
        if (nearest.size() == 3) break;
        if (std::find(nearest.begin(), nearest.end(), name) == nearest.end()) nearest.emplace_back(name);
    }
    return nearest;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates) {
    const std::vector<std::string> nearest = nearMatches(word, candidates);
    if (nearest.empty()) return {};
    return "did you mean '" + joined(nearest, "' or '") + "'?";
}

std::string joined(const std::vector<std::string>& words, std::string_view divider) {
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += divider;
        text += word;
    }
    return text;
}

}  // namespace hmx::client
