// Request paths and the patterns that they match.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "kelo/std/uuid.h"

namespace kelo {

// A path is "/" and parts divided by "/". In a pattern a part "*" matches any one part that is not empty. In a part, the
// characters
// "/", "%" and control characters are percent-encoded, so that a name may hold anything; `part` decodes.
// Thread: any; refers to the text it was made from.
class Path {
public:
    explicit Path(std::string_view text) noexcept : text_{text} {}

    // Whether every part of `path` matches the pattern's, and there are as many.
    [[nodiscard]] static bool matches(std::string_view path, std::string_view pattern) noexcept;
    // The place, counted in parts from 0, of the n-th "*" of the pattern (n from 0); -1 when it has fewer.
    [[nodiscard]] static int indexIntoPathFromPattern(std::string_view pattern, int n) noexcept;
    // The pattern with its stars replaced, in order, by the arguments, which are encoded. Arguments beyond the stars are ignored;
    // stars beyond the arguments stay.
    [[nodiscard]] static std::string replacePattern(std::string_view pattern, std::initializer_list<std::string_view> arguments);
    [[nodiscard]] static std::string toString(int number);

    // The part at `index`, decoded. False, and `out` untouched, when there is none, it is empty, or is badly encoded.
    [[nodiscard]] bool part(int index, std::string& out) const;
    // The same read as an id; false for any other text.
    [[nodiscard]] bool part(int index, std::UUID& out) const;
    // The undecoded part; empty when there is none.
    [[nodiscard]] std::string_view rawPart(int index) const noexcept;

private:
    std::string_view text_;
};

}  // namespace kelo
