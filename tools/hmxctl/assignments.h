// KEY=VALUE and KEY:=JSON, as typed on the command line.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "hmx/client/document.h"
#include "hmx/client/schema.h"

namespace hmxctl {

// Thread: any (a value).
struct Assignment {
    std::string key;
    std::string text;
    bool json = false;  // typed with ":=": the text is JSON
};

// Nothing when the word is no assignment.
[[nodiscard]] std::optional<Assignment> asAssignment(std::string_view word);

// All of the words. Errors: Failure (usage) for one that is none.
[[nodiscard]] std::vector<Assignment> asAssignments(std::span<const std::string> words);

// Sets the keys in `document`, an object or null, in turn. KEY=VALUE takes the type that `members` gives the key: int, float,
// bool ("true" or "false"), a list of strings (separated by commas), anything nested as JSON, and a string otherwise, as for a
// key that is not among them. Errors: Failure (usage) for a value that is not of its type; if `strict` is false, that is a
// string, too.
void assign(Json& document, const std::vector<Assignment>& assignments, Members members, bool strict = true);

}  // namespace hmxctl
