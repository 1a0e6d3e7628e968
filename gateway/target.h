// What a request line asks for: the parts of its path and its query, decoded.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hmxgateway {

// Thread: any (a value).
struct Target {
    using Query = std::vector<std::pair<std::string, std::string>>;

    std::string authority;           // of an absolute form, "http://HOST/path"; else ""
    std::vector<std::string> parts;  // "/hmx/displays" has two, "/" none; a slash that is percent-encoded divides nothing
    Query query;                     // in the order of the request
};

// Nothing for what is not a path, or not percent-encoded UTF-8 without control characters, or beyond the limits. Thread: any.
[[nodiscard]] std::optional<Target> parseTarget(std::string_view text);

// Percent-encodes what must not stand in a part of a path. Thread: any.
[[nodiscard]] std::string encodedPart(std::string_view part);

}  // namespace hmxgateway
