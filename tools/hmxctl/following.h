// Waiting for a subscription while the output's reader is watched.
#pragma once

#include <optional>

#include "context.h"
#include "hmx/client/subscription.h"

namespace hmxctl {

// The next thing to happen; nothing at the deadline (none: waits for ever). Throws OutputClosed when nobody reads the output any
// more. Errors: Failure for what will not mend itself: a request that is refused, an answer that cannot be read.
[[nodiscard]] std::optional<Update> nextUpdate(Context& context, Subscription& subscription,
                                               const std::optional<Deadline>& until);

}  // namespace hmxctl
