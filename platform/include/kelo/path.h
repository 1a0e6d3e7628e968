// Request paths, and the patterns that they are matched with.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "kelo/std/uuid.h"

namespace kelo {

// A path consists of parts, each preceded by "/". In a pattern, the part "*" matches any one part that is not empty. In a part,
// "/", "%" and control characters are percent-encoded, so a name may contain any character; `part` decodes. Thread: any; refers
// to the text it was made from.
class Path {
public:
    explicit Path(std::string_view text) noexcept : text_{text} {}

    // Whether `path` has as many parts as the pattern and each part matches.
    [[nodiscard]] static bool matches(std::string_view path, std::string_view pattern) noexcept;
    // The index (from 0) of the part that the n-th "*" of the pattern (from 0) stands for; -1 if the pattern has fewer.
    [[nodiscard]] static int indexIntoPathFromPattern(std::string_view pattern, int n) noexcept;
    // The pattern with its stars replaced, in order, by the encoded arguments. Surplus arguments are ignored; surplus stars stay.
    [[nodiscard]] static std::string replacePattern(std::string_view pattern, std::initializer_list<std::string_view> arguments);
    [[nodiscard]] static std::string toString(int number);

    // The decoded part at `index`. False, with `out` unchanged, if there is none, if it is empty, or if it is encoded wrongly.
    [[nodiscard]] bool part(int index, std::string& out) const;
    // The same, read as an id; false for any other text.
    [[nodiscard]] bool part(int index, std::UUID& out) const;
    // The part as it is, not decoded; empty if there is none.
    [[nodiscard]] std::string_view rawPart(int index) const noexcept;

private:
    std::string_view text_;
};

}  // namespace kelo
