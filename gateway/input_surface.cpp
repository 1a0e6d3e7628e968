// The input manager knows regions, the display manager which layers are active; who receives a touch follows from both. The
// element puts them together. It is read anew whenever either of them says something; the bridge's layer configurations tell of
// the latter, though not what has become of a layer.

#include "input_surface.h"

#include <map>
#include <optional>
#include <set>

#include "gateway_limits.h"
#include "hmx/client/layer_states.h"
#include "hmx/client/subscription.h"
#include "hmx/inputregions/service_path.h"
#include "target.h"

namespace hmxgateway {
namespace {

using hmx::client::Client;
using hmx::client::Deadline;
using Json = hmx::client::Json;
using hmx::client::Subscription;
using hmx::client::Task;
using hmx::client::Update;
using InactiveLayers = std::map<std::string, std::set<int>>;
using InactiveOutcome = hmx::client::Outcome<InactiveLayers>;

// Longer than the display manager needs; without it the regions are shown all the same.
constexpr std::chrono::milliseconds patience{300};

Json elementFor(const std::string& display, const Json& lists, const std::optional<InactiveLayers>& inactive) {
    Json element{{"id", display}, {"name", display}};
    for (const auto& [key, value] : lists.items()) element[key] = value;
    if (inactive) {
        const auto found = inactive->find(display);
        element["inactiveLayers"] = found == inactive->end() ? std::set<int>{} : found->second;
    }
    return element;
}

Task<std::optional<InactiveLayers>> inactiveLayers(Client& client) {
    try {
        co_return co_await hmx::client::readInactiveLayers(client, Deadline{patience});
    } catch (const hmx::client::Error&) {
    }
    co_return std::nullopt;
}

// Thread: the gateway's.
class SurfaceSource final : public Source {
public:
    SurfaceSource(Client& client, const std::string& display, Topic& topic)
        : client_{client},
          display_{display},
          topic_{topic},
          regions_{client, {.surface = display}, [this] { takeRegions(); }},
          layers_{client, {.target = hmx::client::parseTarget("layerconfigurations/" + display)}, [this] { takeLayers(); }} {}

private:
    void takeRegions() {
        while (const std::optional<Update> update = regions_.tryNext()) {
            switch (update->kind) {
                case Update::Kind::snapshot:
                case Update::Kind::changed:
                    lists_ = hmx::client::decode(update->payload);
                    isThere_ = true;
                    break;
                case Update::Kind::missing:
                    lists_.reset();
                    isThere_ = true;
                    break;
                case Update::Kind::lost:
                case Update::Kind::failed:
                    isThere_ = false;
                    reading_ = {};
                    topic_.lost(kelo::hmx::inputregions::servicePath, update->error->what());
                    break;
                case Update::Kind::ended:
                    break;
            }
        }
        read();
    }

    void takeLayers() {
        while (layers_.tryNext()) {
        }
        read();
    }

    void read() {
        if (!isThere_) return;
        if (!lists_) return publish({});
        reading_ = client_.start(inactiveLayers(client_), [this](hmx::client::Outcome<std::optional<InactiveLayers>> outcome) {
            publish({elementFor(display_, *lists_, std::move(outcome).value())});
        });
    }

    void publish(std::vector<Json> elements) {
        const bool isNews = !topic_.isKnown() || topic_.isLost() || elements.empty() != shown_.empty();
        if (isNews) {
            topic_.snapshot(elements);
        } else if (elements != shown_) {
            topic_.changed(elements.front());
        }
        shown_ = std::move(elements);
    }

    Client& client_;
    std::string display_;
    Topic& topic_;
    bool isThere_ = false;
    std::optional<Json> lists_;
    std::vector<Json> shown_;
    hmx::client::Operation reading_;
    Subscription regions_;
    Subscription layers_;
};

}  // namespace

Task<hmx::client::Answer> readSurface(Client& client, std::string display, std::string_view mimeType) {
    const Deadline deadline{limits.answer};
    const hmx::client::Service service = co_await client.service(std::string{kelo::hmx::inputregions::servicePath}, deadline);
    const hmx::client::Query query{"retrieve", "/" + encodedPart(display), nullptr};
    const std::optional<hmx::client::Answer> answer = co_await service.find(query, deadline);
    Json document{{"display", display}, {"elements", Json::array()}};
    if (answer) {
        const std::optional<InactiveLayers> inactive = co_await inactiveLayers(client);
        document["elements"].push_back(elementFor(display, hmx::client::decode(answer->payload), inactive));
    }
    co_return hmx::client::Answer{200, hmx::client::encode(document, mimeType)};
}

std::unique_ptr<Source> followSurface(Client& client, const std::string& display, Topic& topic) {
    return std::make_unique<SurfaceSource>(client, display, topic);
}

}  // namespace hmxgateway
