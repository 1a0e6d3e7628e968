// Findings as the output formats show them.
#pragma once

#include <string>
#include <vector>

#include "hmx/client/finding.h"

namespace hmxctl {

// Each with what it rests on, as far as its text does not say so, and what would change it.
[[nodiscard]] std::vector<std::string> findingLines(const std::vector<hmx::client::Finding>& findings, bool colour);

}  // namespace hmxctl
