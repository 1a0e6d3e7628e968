// The differences between what two sides have said.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "history.h"
#include "hmx/client/document.h"

namespace hmxctl {

// Where two tracks part: the numbers of the states that stand against each other, from 0; nothing for a side that has none there.
// Thread: any (a value).
struct Parting {
    std::optional<std::size_t> a;
    std::optional<std::size_t> b;
};

// The rules:
//
//  1. Both must end in the same state.
//  2. States that only one side shows between two that both show are no difference: a reader that is slow skips states. They are
//     counted in `skipped`, or count as a difference if `strict`.
//  3. Where both show states between the same two that the other does not show, they differ.
//
// Tracks that are very long and very different are not followed to their end; then the first parting is told, and the end.
[[nodiscard]] std::vector<Parting> partings(const Track& a, const Track& b, bool strict, std::size_t& skipped);

// Thread: any (a value).
struct MemberDifference {
    std::string path;     // "resolution.width"
    hmx::client::Json a;  // null if it is absent
    hmx::client::Json b;
};

// A state of an element that differs; of an element that only one side has, and of a source's turns, there are no members.
// Thread: any (a value).
struct Difference {
    hmx::recording::Source source{};
    std::string element{};  // what tells it from the others; "": the source as a whole
    hmx::client::Json a{};  // its state, null if it is absent
    hmx::client::Json b{};
    std::optional<Point> atA{};  // when; nothing if that side never had it
    std::optional<Point> atB{};
    std::vector<MemberDifference> members{};
};

// Thread: any (a value).
struct Comparison {
    std::vector<Difference> differences;
    std::size_t sources = 0;  // that were compared
    std::size_t elements = 0;
    std::size_t skipped = 0;         // states, see above
    std::vector<std::string> onlyA;  // what cannot be compared, because only one side knows of it: "/popups of /hmx"
    std::vector<std::string> onlyB;
};

[[nodiscard]] Comparison compare(const History& a, const History& b, const Texts& texts, bool strict);

// The members in which two documents differ, by path; lists count as a whole. The order of members does not count.
[[nodiscard]] std::vector<MemberDifference> memberDifferences(const hmx::client::Json& a, const hmx::client::Json& b);

}  // namespace hmxctl
