// Waiting for a subscription, and for what becomes true of it, while the output's reader is watched.
#pragma once

#include <optional>

#include "context.h"
#include "expression.h"
#include "hmx/client/subscription.h"

namespace hmxctl {

// The next thing to happen; nothing at the deadline (none: waits for ever). Throws OutputClosed when nobody reads the output any
// more. Errors: Failure for what will not mend itself: a request that is refused, an answer that cannot be read.
[[nodiscard]] std::optional<Update> nextUpdate(Context& context, Subscription& subscription,
                                               const std::optional<Deadline>& until);

// The expression that the command line says, about the element or the elements of `target`, with its members checked unless
// --no-validate says otherwise. Nothing where it says none. Errors: Failure (usage).
[[nodiscard]] std::optional<Expression> conditionAbout(const Context& context, const Target& target);

// Whether the expression, if there is one, holds for what is there now.
[[nodiscard]] bool isTrue(const std::optional<Expression>& condition, const Target& target, const std::vector<Json>& elements);
[[nodiscard]] std::vector<const Json*> pointersTo(const std::vector<Json>& elements);

// What there was instead of what was waited for. `last`: the elements seen last; nothing if there were none.
[[nodiscard]] std::string instead(const std::optional<Expression>& condition, const Target& target,
                                  const std::optional<std::vector<Json>>& last);
// It has not become true in time.
[[nodiscard]] Failure conditionLate(const Context& context, std::chrono::milliseconds time, const std::string& instead);

}  // namespace hmxctl
