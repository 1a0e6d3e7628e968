// On which layers each displayable is, which is no part of /hmx: the display manager's own records.
#pragma once

#include <memory>
#include <string_view>

#include "event_hub.h"
#include "hmx/client/client.h"
#include "hmx/client/document.h"

namespace hmxgateway {

inline constexpr std::string_view placementsSource{"display manager"};

// {"elements":[…]} in the encoding of `mimeType`: the records as the display manager sends them, but for the id, which is text.
// `client` outlives the task. Errors: hmx::client::Error.
[[nodiscard]] hmx::client::Task<hmx::client::Answer> readPlacements(hmx::client::Client& client, std::string_view mimeType);

// Keeps the topic up to date with the same elements. Client and topic outlive it. Thread: the gateway's.
[[nodiscard]] std::unique_ptr<Source> followPlacements(hmx::client::Client& client, Topic& topic);

}  // namespace hmxgateway
