// A display's touch surface, which is no part of /hmx: the input manager's regions, and which layers are switched off.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "event_hub.h"
#include "hmx/client/client.h"
#include "hmx/client/document.h"

namespace hmxgateway {

// Answers say where they come from, since it is not /hmx.
inline constexpr std::string_view sourceHeader{"X-Source"};
inline constexpr std::string_view surfaceSource{"input manager"};

// {"display":…,"elements":[…]} in the encoding of `mimeType`: one element with the input manager's two lists as it sends them, or
// none for a display that it does not know. `client` outlives the task. Errors: hmx::client::Error.
[[nodiscard]] hmx::client::Task<hmx::client::Answer> readSurface(hmx::client::Client& client, std::string display,
                                                                 std::string_view mimeType);

// Keeps the topic up to date with the same element. Client and topic outlive it. Thread: the gateway's.
[[nodiscard]] std::unique_ptr<Source> followSurface(hmx::client::Client& client, const std::string& display, Topic& topic);

}  // namespace hmxgateway
