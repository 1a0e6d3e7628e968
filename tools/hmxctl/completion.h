// What could come next on a command line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "hmx/client/resources.h"

namespace hmxctl {

// Thread: any (a value).
struct Candidate {
    std::string word;  // in place of the whole word that is being typed
    std::string about;
};

// Names that only a running system knows. Thread: main.
class NameSource {
public:
    virtual ~NameSource() = default;
    // The names of a resource's elements; empty when they cannot be had quickly.
    virtual std::vector<std::string> elements(const Resource& resource) = 0;
    virtual std::vector<std::string> services() = 0;
    // The trace channels of a service.
    virtual std::vector<std::string> channels(const std::string& service) = 0;
};

// The words of a command line as far as it has been typed, quotes and backslashes taken away; the last is the one being typed,
// "" behind a blank.
[[nodiscard]] std::vector<std::string> splitLine(std::string_view line);

// The value that an option has been given in a command line so far, "~/" replaced as a shell would; "" for none.
[[nodiscard]] std::string optionValue(std::string_view line, std::string_view option);

// The candidates for the last word of `line`, which begins with the command's own name.
[[nodiscard]] std::vector<Candidate> complete(std::string_view line, NameSource& names);

// The completion script of a shell; "" for one that is not known.
[[nodiscard]] std::string_view completionScript(std::string_view shell) noexcept;
[[nodiscard]] std::vector<std::string> completionShells();

}  // namespace hmxctl
