// What RESOURCE[/ELEMENT] on the command line names, with failures in the words of the verb.
#pragma once

#include <string_view>

#include "failure.h"
#include "hmx/client/resources.h"

namespace hmxctl {

// Errors: Failure (usage), with what may have been meant.
[[nodiscard]] const Resource& resourceNamed(std::string_view name, std::string_view verb);

// Errors: Failure (usage).
[[nodiscard]] Target parseTarget(std::string_view word, std::string_view verb);
// The same for a verb that works on one element.
[[nodiscard]] Target parseElement(std::string_view word, std::string_view verb);

}  // namespace hmxctl
