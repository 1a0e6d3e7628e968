#include "placements.h"

#include <string>
#include <utility>
#include <vector>

#include "gateway_limits.h"
#include "hmx/client/changes.h"
#include "hmx/client/retrieves.h"
#include "hmx/displaymanager/service_path.h"

namespace hmxgateway {
namespace {

using hmx::client::Client;
using hmx::client::Deadline;
using hmx::client::ElementChange;
using hmx::client::Heard;
using Json = hmx::client::Json;
using hmx::client::Task;

constexpr std::string_view displayManager = kelo::hmx::displaymanager::servicePath;

hmx::client::Query placementsQuery() {
    return {"retrieve", "/displayables", nullptr};
}

std::vector<Json> elementsIn(const kelo::Payload& payload) {
    const Json document = hmx::client::decode(payload);
    std::vector<Json> elements;
    for (const Json& record : hmx::client::member(document, "infoForAllDisplayables")) {
        const Json& number = hmx::client::member(record, "id");
        if (!number.is_number_integer()) continue;
        Json& element = elements.emplace_back(record);
        element["id"] = hmx::client::compact(number);
    }
    return elements;
}

// Thread: the gateway's.
class PlacementsSource final : public Source {
public:
    PlacementsSource(Client& client, Topic& topic)
        : topic_{topic}, retrieves_{client, [this](const Heard& heard) { take(heard); }} {
        (void)retrieves_.follow(std::string{displayManager}, placementsQuery());
    }

private:
    void take(const Heard& heard) {
        switch (heard.kind) {
            case Heard::Kind::answer:
                try {
                    return publish(elementsIn(heard.response.payload()));
                } catch (const hmx::client::Error& error) {
                    topic_.lost(displayManager, error.what());
                    return retrieves_.askAgain(heard.which);
                }
            case Heard::Kind::missing:
            case Heard::Kind::lost:
            case Heard::Kind::failed:
                return topic_.lost(displayManager, heard.error->what());
            case Heard::Kind::ended:
                return;
        }
    }

    void publish(std::vector<Json> elements) {
        if (!topic_.isKnown() || topic_.isLost()) {
            topic_.snapshot(elements);
        } else {
            for (const ElementChange& change : hmx::client::changesBetween(shown_, elements)) {
                if (change.kind == ElementChange::Kind::removed) {
                    topic_.removed(hmx::client::text(change.element, "id"));
                } else {
                    topic_.changed(change.element);
                }
            }
        }
        shown_ = std::move(elements);
    }

    Topic& topic_;
    std::vector<Json> shown_;
    hmx::client::Retrieves retrieves_;
};

}  // namespace

Task<hmx::client::Answer> readPlacements(Client& client, std::string_view mimeType) {
    const Deadline deadline{limits.answer};
    const hmx::client::Service service = co_await client.service(std::string{displayManager}, deadline);
    const hmx::client::Answer answer = co_await service.request(placementsQuery(), deadline);
    const Json document{{"elements", elementsIn(answer.payload)}};
    co_return hmx::client::Answer{200, hmx::client::encode(document, mimeType)};
}

std::unique_ptr<Source> followPlacements(Client& client, Topic& topic) {
    return std::make_unique<PlacementsSource>(client, topic);
}

}  // namespace hmxgateway
