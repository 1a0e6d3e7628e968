#include "watches.h"

#include "hmx/client/subscription.h"
#include "input_surface.h"
#include "parameters.h"
#include "placements.h"
#include "router.h"

namespace hmxgateway {
namespace {

using hmx::client::ElementChange;
using Json = hmx::client::Json;
using hmx::client::Subscription;
using hmx::client::Update;

// Follows a resource or an element for a topic. Thread: the gateway's.
class SubscribedSource final : public Source {
public:
    SubscribedSource(hmx::client::Client& client, hmx::client::Followed followed, Topic& topic)
        : topic_{topic}, subscription_{client, std::move(followed), [this] { take(); }} {}

private:
    void take() {
        while (const std::optional<Update> update = subscription_.tryNext()) tell(*update);
    }

    void tell(const Update& update) {
        switch (update.kind) {
            case Update::Kind::snapshot:
                return topic_.snapshot(update.elements);
            case Update::Kind::missing:
            case Update::Kind::changed:
                if (update.isBack || !topic_.isKnown()) return topic_.snapshot(update.elements);
                for (const ElementChange& change : update.changes) {
                    if (change.kind == ElementChange::Kind::removed) {
                        topic_.removed(hmx::client::text(change.element, "id"));
                    } else {
                        topic_.changed(change.element);
                    }
                }
                return;
            case Update::Kind::lost:
            case Update::Kind::failed:
                return topic_.lost(update.error->service().empty() ? hmx::client::hmxService : update.error->service(),
                                   update.error->what());
            case Update::Kind::ended:
                return;
        }
    }

    Topic& topic_;
    Subscription subscription_;
};

}  // namespace

std::optional<Watch> watchFor(hmx::client::Client& client, const std::string& text) {
    const std::optional<Target> target = parseTarget(text);
    if (!target) return {};
    const Route found = route("GET", *target);
    if (const auto* surface = std::get_if<SurfaceRoute>(&found)) {
        return Watch{text, [&client, display = surface->display](Topic& topic) { return followSurface(client, display, topic); }};
    }
    if (std::holds_alternative<PlacementsRoute>(found)) {
        return Watch{text, [&client](Topic& topic) { return followPlacements(client, topic); }};
    }
    const auto* resource = std::get_if<ResourceRoute>(&found);
    if (resource == nullptr) return {};
    hmx::client::Followed followed;
    followed.target = {resource->resource, resource->element};
    followed.parameters =
        parametersFrom(target->query, *resource->resource, resource->element.empty() ? Asked::watch : Asked::element);
    return Watch{text, [&client, followed](Topic& topic) { return std::make_unique<SubscribedSource>(client, followed, topic); }};
}

}  // namespace hmxgateway
