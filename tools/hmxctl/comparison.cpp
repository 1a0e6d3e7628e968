// Tracks are compared like the lines of two files, with the greedy algorithm of Myers: the fewest states that have to be left out
// of one and put in from the other. What both have in common at the beginning and the end is set aside first.

#include "comparison.h"

#include <algorithm>
#include <set>
#include <utility>

namespace hmxctl {
namespace {

using namespace hmx::client;  // NOLINT(google-build-using-namespace)
using hmx::recording::Source;

constexpr std::ptrdiff_t mostEdits = 1500;

using Match = std::pair<std::size_t, std::size_t>;

// Whether all states of `part` occur in `whole`, in their order.
bool isWithin(const Track& part, const Track& whole) {
    std::size_t found = 0;
    for (const Point& point : whole) {
        if (found < part.size() && part[found].state == point.state) ++found;
    }
    return found == part.size();
}

// The states that both have, in order, between these; nothing if it would take too long.
std::optional<std::vector<Match>> matches(const Track& a, const Track& b, Match first, Match last) {
    const auto n = static_cast<std::ptrdiff_t>(last.first - first.first);
    const auto m = static_cast<std::ptrdiff_t>(last.second - first.second);
    const auto isSame = [&](std::ptrdiff_t x, std::ptrdiff_t y) {
        return a[first.first + static_cast<std::size_t>(x)].state == b[first.second + static_cast<std::size_t>(y)].state;
    };
    const std::ptrdiff_t most = std::min(mostEdits, n + m);
    std::vector<std::vector<std::ptrdiff_t>> furthest;  // by edits; on the diagonals from -edits to edits
    // Where that many edits begin on the diagonal, -1 if they do not get there, and whether the last of them put in a state of b.
    const auto from = [&](std::ptrdiff_t edits, std::ptrdiff_t diagonal) -> std::pair<std::ptrdiff_t, bool> {
        if (edits == 0) return {0, false};
        const std::vector<std::ptrdiff_t>& before = furthest[static_cast<std::size_t>(edits - 1)];
        const auto reach = [&](std::ptrdiff_t k) {
            return k < 1 - edits || k > edits - 1 ? std::ptrdiff_t{-1} : before[static_cast<std::size_t>(k + edits - 1)];
        };
        const std::ptrdiff_t down = reach(diagonal + 1) - diagonal <= m ? reach(diagonal + 1) : -1;
        const std::ptrdiff_t right = reach(diagonal - 1) < 0 || reach(diagonal - 1) >= n ? -1 : reach(diagonal - 1) + 1;
        return {std::max(down, right), down >= right};
    };
    for (std::ptrdiff_t edits = 0; edits <= most; ++edits) {
        std::vector<std::ptrdiff_t> reached(static_cast<std::size_t>(2 * edits + 1), -1);
        for (std::ptrdiff_t k = -edits; k <= edits; k += 2) {
            std::ptrdiff_t x = from(edits, k).first;
            if (x < 0 || x < k || x - k > m) continue;
            while (x < n && x - k < m && isSame(x, x - k)) ++x;
            reached[static_cast<std::size_t>(k + edits)] = x;
            if (x < n || x - k < m) continue;
            // The way back.
            furthest.push_back(std::move(reached));
            std::vector<Match> found;
            for (std::ptrdiff_t e = edits, d = k, at = x; e >= 0; --e) {
                const auto [begin, isDown] = from(e, d);
                for (; at > begin; --at) {
                    found.emplace_back(first.first + static_cast<std::size_t>(at - 1),
                                       first.second + static_cast<std::size_t>(at - 1 - d));
                }
                at = isDown ? begin : begin - 1;
                d += isDown ? 1 : -1;
            }
            std::reverse(found.begin(), found.end());
            return found;
        }
        furthest.push_back(std::move(reached));
    }
    return {};
}

// /hmx by resource, the upstream services each as one: what a side either knows of or does not.
std::string groupOf(const Source& source) {
    if (source.service != "/hmx") return source.service;
    return source.path.substr(0, source.path.find('/', 1)) + " of " + source.service;
}

void addMembers(const Json& a, const Json& b, const std::string& path, std::vector<MemberDifference>& found) {
    if (!a.is_object() || !b.is_object()) {
        if (a != b) found.push_back({path, a, b});
        return;
    }
    const auto below = [&](const std::string& key) { return path.empty() ? key : path + "." + key; };
    for (const auto& [key, value] : a.items()) addMembers(value, member(b, key), below(key), found);
    for (const auto& [key, value] : b.items()) {
        if (!a.contains(key)) found.push_back({below(key), nullptr, value});
    }
}

// Thread: one at a time.
class Comparing {
public:
    Comparing(const Texts& texts, bool strict) : texts_{texts}, strict_{strict} {}

    void compare(const Source& source, const SourceHistory& a, const SourceHistory& b) {
        ++result.sources;
        if (!a.turns.empty() && !b.turns.empty()) {
            compare(source, "", a.turns, b.turns);
            if (a.hasDocument != b.hasDocument) return;  // of one of them nothing is known but that
        }
        std::set<std::string> names;
        for (const SourceHistory* side : {&a, &b}) {
            for (const auto& [name, track] : side->elements) names.insert(name);
        }
        static const Track never;
        const auto trackOf = [](const SourceHistory& side, const std::string& name) -> const Track& {
            const auto found = side.elements.find(name);
            return found == side.elements.end() ? never : found->second;
        };
        result.elements += names.size();
        for (const std::string& name : names) compare(source, name, trackOf(a, name), trackOf(b, name));
    }

    Comparison result;

private:
    void compare(const Source& source, const std::string& element, const Track& a, const Track& b) {
        for (const Parting& parting : partings(a, b, strict_, result.skipped)) {
            Difference difference{.source = source, .element = element};
            const auto state = [&](const Track& track, const std::optional<std::size_t>& at, std::optional<Point>& when) -> Json {
                if (!at || *at >= track.size()) return nullptr;
                when = track[*at];
                const std::string& text = texts_.text(track[*at].state);
                if (text.empty()) return nullptr;
                return element.empty() ? Json(text) : Json::parse(text);
            };
            difference.a = state(a, parting.a, difference.atA);
            difference.b = state(b, parting.b, difference.atB);
            if (difference.a.is_object() && difference.b.is_object()) {
                difference.members = memberDifferences(difference.a, difference.b);
                if (difference.members.empty()) continue;  // only the order of members
            }
            result.differences.push_back(std::move(difference));
        }
    }

    const Texts& texts_;
    bool strict_;
};

}  // namespace

std::vector<Parting> partings(const Track& givenA, const Track& givenB, bool strict, std::size_t& skipped) {
    // What was never seen was never there.
    static const Track never{{}};
    const Track& a = givenA.empty() ? never : givenA;
    const Track& b = givenB.empty() ? never : givenB;
    std::vector<Parting> found;
    if (!strict && a.back().state == b.back().state && (isWithin(a, b) || isWithin(b, a))) {
        skipped += std::max(a.size(), b.size()) - std::min(a.size(), b.size());
        return found;
    }
    Match first{0, 0};
    Match last{a.size(), b.size()};
    while (first.first < last.first && first.second < last.second && a[first.first].state == b[first.second].state) {
        ++first.first, ++first.second;
    }
    while (last.first > first.first && last.second > first.second && a[last.first - 1].state == b[last.second - 1].state) {
        --last.first, --last.second;
    }
    const bool sameEnd = a.back().state == b.back().state;
    std::vector<Match> anchors = matches(a, b, first, last).value_or(std::vector<Match>{});
    anchors.push_back(last);
    for (const Match& anchor : anchors) {
        const std::size_t onlyA = anchor.first - first.first;
        const std::size_t onlyB = anchor.second - first.second;
        const bool isEnd = anchor == last && !sameEnd;
        if (isEnd) {
            found.push_back({a.size() - 1, b.size() - 1});
        } else if ((onlyA > 0 && onlyB > 0) || (strict && onlyA + onlyB > 0)) {
            found.push_back(
                {onlyA > 0 ? std::optional{first.first} : std::nullopt, onlyB > 0 ? std::optional{first.second} : std::nullopt});
        } else {
            skipped += onlyA + onlyB;
        }
        first = {anchor.first + 1, anchor.second + 1};
    }
    return found;
}

std::vector<MemberDifference> memberDifferences(const Json& a, const Json& b) {
    std::vector<MemberDifference> found;
    addMembers(a, b, "", found);
    return found;
}

Comparison compare(const History& a, const History& b, const Texts& texts, bool strict) {
    std::set<std::string> groupsOfA;
    std::set<std::string> groupsOfB;
    for (const auto& [key, history] : a.sources()) groupsOfA.insert(groupOf(history.source));
    for (const auto& [key, history] : b.sources()) groupsOfB.insert(groupOf(history.source));
    Comparing comparing{texts, strict};
    static const SourceHistory silent;
    for (const auto& [key, history] : a.sources()) {
        if (!groupsOfB.contains(groupOf(history.source))) continue;
        const auto found = b.sources().find(key);
        comparing.compare(history.source, history, found == b.sources().end() ? silent : found->second);
    }
    for (const auto& [key, history] : b.sources()) {
        if (groupsOfA.contains(groupOf(history.source)) && !a.sources().contains(key))
            comparing.compare(history.source, silent, history);
    }
    Comparison& result = comparing.result;
    std::set_difference(groupsOfA.begin(), groupsOfA.end(), groupsOfB.begin(), groupsOfB.end(), std::back_inserter(result.onlyA));
    std::set_difference(groupsOfB.begin(), groupsOfB.end(), groupsOfA.begin(), groupsOfA.end(), std::back_inserter(result.onlyB));
    return std::move(result);
}

}  // namespace hmxctl
