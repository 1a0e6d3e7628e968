#include "following.h"

namespace hmxctl {

std::optional<Update> nextUpdate(Context& context, Subscription& subscription, const std::optional<Deadline>& until) {
    subscription.limitAttempts(until);
    for (;;) {
        std::optional<Update> update = subscription.tryNext();
        if (update && update->kind == Update::Kind::failed) throw failureOf(*update->error);
        if (update || (until && until->passed()) || context.isOver()) return update;
        (void)context.waitForNews(until);
    }
}

}  // namespace hmxctl
