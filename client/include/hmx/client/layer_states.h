// Which layers are switched off: the resource service does not say, the display manager does.
#pragma once

#include <map>
#include <set>
#include <string>

#include "hmx/client/client.h"
#include "hmx/client/document.h"

namespace hmx::client {

// The numbers of the layers that are there but not active, by display. `client` outlives the task. Errors: Error.
[[nodiscard]] Task<std::map<std::string, std::set<int>>> readInactiveLayers(Client& client, Deadline deadline);

// Marks those among `layers`, the "layers" of a display's configuration, with "active": false. Thread: any.
void markInactive(Json& layers, const std::set<int>& numbers);

}  // namespace hmx::client
