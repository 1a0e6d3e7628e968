// Which layers are switched off, as far as it can be had.
#pragma once

#include <map>
#include <set>
#include <string>

#include "context.h"
#include "hmx/client/layer_states.h"

namespace hmxctl {

// As readInactiveLayers. When the display manager is away it is said on standard error, and all layers count as active. Errors:
// Failure. Thread: main.
[[nodiscard]] std::map<std::string, std::set<int>> inactiveLayers(Context& context);

}  // namespace hmxctl
