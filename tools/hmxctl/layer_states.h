// Which layers are switched off: the resource service does not say, the display manager does.
#pragma once

#include <map>
#include <set>
#include <string>

#include "context.h"
#include "document.h"

namespace hmxctl {

// The numbers of the layers that are there but not active, by display. When the display manager is away it is said on standard
// error, and all count as active. Errors: Failure. Thread: main.
[[nodiscard]] std::map<std::string, std::set<int>> readInactiveLayers(Context& context);

// Marks those among `layers`, the "layers" of a display's configuration, with "active": false.
void markInactive(Json& layers, const std::set<int>& numbers);

}  // namespace hmxctl
