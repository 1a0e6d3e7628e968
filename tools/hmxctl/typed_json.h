// JSON that a person has typed.
#pragma once

#include <string>
#include <string_view>

#include "failure.h"
#include "hmx/client/document.h"

namespace hmxctl {

// Reads JSON text. `origin` names it in the failure, with line and column: Failure (usage).
[[nodiscard]] Json parseJson(std::string_view text, const std::string& origin);

}  // namespace hmxctl
