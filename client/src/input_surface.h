// The input manager's answer about one display, asked for through its own stub and passed on as a document.
#pragma once

#include <string>
#include <vector>

#include "hmx/client/document.h"
#include "hmx/client/inbox.h"
#include "hmx/client/service.h"

namespace hmx::client {

// What is asked, for messages. Thread: the dispatcher's, as all here.
[[nodiscard]] Query surfaceQuery(const std::string& display);

// Asks for the regions of a display; answers go to `inbox`, each as a JSON document of the keys that this build knows.
[[nodiscard]] Stream openSurface(const Service& service, const std::string& display, const Inbox& inbox, std::size_t source,
                                 bool oneShot);

// The input regions of such an answer, in order.
[[nodiscard]] std::vector<Json> regionsOf(const kelo::Payload& payload);

}  // namespace hmx::client
