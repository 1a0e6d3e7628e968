// Patterns of paths in a policy.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::policy {

// The part "*" stands for any one part that is not empty; "**", as the last part, for any number of parts, also none. Thread: any
// (a value).
class Pattern {
public:
    // One part, as it is compared.
    struct Part {
        bool isAny = false;
        std::string text;  // canonical

        // Whether it matches whatever the other one matches.
        bool covers(const Part& other) const noexcept { return isAny ? other.isAny || !other.text.empty() : *this == other; }
        bool operator==(const Part&) const = default;
    };

    Pattern() = default;  // "/**"
    // Nothing if the text is no pattern; the reason is in `why`.
    [[nodiscard]] static std::optional<Pattern> parse(std::string_view text, std::string& why);

    const std::vector<Part>& parts() const noexcept { return parts_; }
    // Whether any number of parts may follow.
    bool isOpen() const noexcept { return isOpen_; }
    bool matches(std::string_view path) const;
    std::string toString() const;
    // Whether every path that this matches is matched by the other one, too.
    bool isWithin(const Pattern& other) const noexcept;

private:
    std::vector<Part> parts_;
    bool isOpen_ = true;
};

// Removes the next part from a path's front, with the slash before it. A path that does not begin with a slash is read as if it
// did, so that nothing escapes a pattern by being malformed. False if the path is at its end.
[[nodiscard]] bool takePart(std::string_view& path, std::string_view& part) noexcept;
// The one spelling of a part that stands for all: decoded, an id in lower case. What is encoded wrongly stays as it is.
[[nodiscard]] std::string canonical(std::string_view part);

}  // namespace kelo::policy
