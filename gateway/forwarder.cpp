// A retrieve does not go out at once: it waits until the turn of the loop ends. Those that are alike, of however many clients,
// then go out as one, and share one answer with one ETag. What one client asks after it was told of a change is asked after the
// change: nobody gets an answer to a request that was sent before his own came.
//
// Exchanges wait suspended, so each stays until it is answered here.

#include "forwarder.h"

#include <utility>

#include "gateway_limits.h"
#include "hmx/client/elements.h"
#include "input_surface.h"
#include "page.h"
#include "parameters.h"
#include "placements.h"
#include "problem.h"
#include "util/text.h"

namespace hmxgateway {
namespace {

using hmx::client::Client;
using hmx::client::Deadline;
using hmx::client::Elements;
using hmx::client::Error;
using Json = hmx::client::Json;
using hmx::client::RequestStyle;
using hmx::client::Resource;
using hmx::client::Task;
using Reply = hmx::client::Answer;

// What is away is said to be away: whether and when to ask again, the HTTP client knows best.
RequestStyle styleFor(std::string_view mimeType) {
    RequestStyle style;
    style.mimeType = mimeType;
    style.patient = false;
    return style;
}

// One page for all displays, as if there were a list of it.
Reply merged(const std::vector<Reply>& pages, std::string_view mimeType) {
    Json data = Json::array();
    for (const Reply& page : pages) {
        for (Json& element : hmx::client::elementsOf(hmx::client::decode(page.payload))) data.push_back(std::move(element));
    }
    const std::size_t total = data.size();
    const Json document{{"total", total}, {"totalPages", 1}, {"data", std::move(data)}};
    return {200, hmx::client::encode(document, mimeType)};
}

Task<Reply> askFor(Client& client, const Resource& resource, std::string element, Json parameters, std::string_view mimeType) {
    const Deadline deadline{limits.answer};
    Elements elements{client, deadline};
    const hmx::client::Service service =
        co_await client.service(std::string{hmx::client::hmxService}, deadline, styleFor(mimeType));
    if (element.empty()) {
        const std::vector<hmx::client::Query> queries = co_await elements.listQueries(resource, parameters);
        if (queries.size() == 1) co_return co_await service.request(queries.front(), deadline);
        co_return merged(co_await elements.pages(resource, std::move(parameters)), mimeType);
    }
    const hmx::client::Target target{&resource, std::move(element)};
    const std::UUID id = co_await elements.find(target);
    const hmx::client::Query query{"retrieve", elementPath(resource, id), parameters};
    if (std::optional<Reply> reply = co_await service.find(query, deadline)) co_return *std::move(reply);
    // The bridge has not met this id yet. It does when it lists; or it is known then that there is no such element.
    (void)co_await elements.request(query.command, resource, id, std::move(parameters));
    co_return co_await service.request(query, deadline);
}

Task<Reply> carryOut(Client& client, const Resource& resource, std::string element, std::string command, Json body) {
    const Deadline deadline{limits.answer};
    Elements elements{client, deadline};
    if (!element.empty()) {
        const hmx::client::Target target{&resource, std::move(element)};
        const std::UUID id = co_await elements.find(target);
        co_return co_await elements.request(std::move(command), resource, id, std::move(body));
    }
    const hmx::client::Service& service = *co_await elements.service();
    const hmx::client::Query query{std::move(command), std::string{resource.path}, std::move(body)};
    co_return co_await service.request(query, deadline);
}

Task<Reply> askForStatus(Client& client) {
    const Deadline deadline{std::chrono::seconds{1}};
    const hmx::client::Service service =
        co_await client.service(std::string{hmx::client::hmxService}, deadline, styleFor(kelo::mimetypes::applicationJson));
    const hmx::client::Query query{"retrieve", "/$platform/status", nullptr};
    co_return co_await service.request(query, deadline);
}

Answer answerTo(const Reply& reply, std::string_view mediaType) {
    const std::string_view text = reply.payload.text();
    Answer answer{200, std::string{text}, mediaType};
    return answer.with("ETag", tagOf(text)).with("Cache-Control", "no-cache").with("Vary", "Accept");
}

Answer notModified(const Reply& reply) {
    return Answer{304}.with("ETag", tagOf(reply.payload.text())).with("Cache-Control", "no-cache").with("Vary", "Accept");
}

// Of an insert: the new element's URI, as a path.
std::string locationIn(const Reply& reply) {
    const Json document = hmx::client::decode(reply.payload);
    const std::string uri = document.is_string() ? document.get<std::string>() : hmx::client::text(document, "uri");
    return uri.empty() || uri.starts_with('/') ? uri : "/" + uri;
}

std::string_view nameOf(hmx::client::Sent sent, int status) {
    if (status != 503 && status != 504) return {};
    return sent == hmx::client::Sent::no ? "no" : "unknown";
}

int statusOf(const Error& error) {
    using Kind = Error::Kind;
    switch (error.kind()) {
        case Kind::refused:
            return error.status() >= 400 && error.status() <= 599 ? error.status() : 502;
        case Kind::ended:
        case Kind::unreadable:
            return 502;
        case Kind::late:
            return 504;
        case Kind::invalid:
            return 400;
        case Kind::ambiguous:
            return 409;
        case Kind::noElement:
        case Kind::nameless:
            return 404;
        case Kind::noService:
        case Kind::serviceDead:
        case Kind::serviceHung:
        case Kind::serviceFull:
        case Kind::foreign:
        case Kind::noDomain:
        case Kind::closedDomain:
        case Kind::notEntered:
            return 503;
        case Kind::system:
            return 500;
    }
    return 500;
}

}  // namespace

Answer problem(const Error& error) {
    const int status = statusOf(error);
    std::string detail = error.reason().empty() ? std::string{error.what()} : error.reason();
    if (error.kind() == Error::Kind::ambiguous || error.kind() == Error::Kind::noElement) {
        for (std::size_t i = 0; i < error.names().size(); ++i) detail += (i == 0 ? "; there are " : ", ") + error.names()[i];
    }
    return problem(status, util::printable(detail, 1024), nameOf(error.sent(), status));
}

Answer withOrigin(Answer answer, std::string_view allowedOrigin) {
    if (!allowedOrigin.empty()) answer.with("Access-Control-Allow-Origin", allowedOrigin).with("Vary", "Origin");
    return answer;
}

Forwarder::~Forwarder() = default;

bool Forwarder::isFull(Exchange& exchange) const {
    if (operations_.size() + gathered_.size() < limits.waitingRequests) return false;
    exchange.refuse(Refusal::requests);
    return true;
}

void Forwarder::start(Task task, std::function<void(hmx::client::Outcome<Reply>)> done) {
    const auto place = operations_.emplace(operations_.end());
    *place = client_.start(std::move(task), [this, place, done = std::move(done)](hmx::client::Outcome<Reply> outcome) {
        const hmx::client::Operation ended = std::move(*place);
        operations_.erase(place);
        done(std::move(outcome));
    });
}

template <class Ask>
void Forwarder::gather(Exchange& exchange, const MediaType& type, std::string_view source, Ask ask) {
    key_.assign(exchange.target()).append("\n").append(type.name).append("\n").append(exchange.allowedOrigin);
    const auto found = gathered_.find(key_);
    if (found != gathered_.end()) return found->second.exchanges.push_back(&exchange);
    if (isFull(exchange)) return;
    gathered_.emplace(key_, Shared{ask(), type.name, {&exchange}, source});
}

void Forwarder::flush() {
    while (!gathered_.empty()) {
        Shared shared = std::move(gathered_.extract(gathered_.begin()).mapped());
        start(std::move(shared.task), [exchanges = std::move(shared.exchanges), type = shared.mediaType,
                                       source = shared.source](hmx::client::Outcome<Reply> outcome) {
            const std::string_view origin = exchanges.front()->allowedOrigin;
            if (!outcome) {
                const Answer failed = withOrigin(problem(outcome.error()), origin);
                for (Exchange* exchange : exchanges) exchange->answer(failed);
                return;
            }
            const Reply& reply = outcome.value();
            const std::string tag = tagOf(reply.payload.text());
            std::optional<Answer> whole;
            std::optional<Answer> unchanged;
            for (Exchange* exchange : exchanges) {
                const bool isKnown = namesTag(exchange->header("If-None-Match"), tag);
                std::optional<Answer>& answer = isKnown ? unchanged : whole;
                if (!answer) {
                    answer = withOrigin(isKnown ? notModified(reply) : answerTo(reply, type), origin);
                    if (!source.empty()) answer->with(sourceHeader, source);
                }
                exchange->answer(*answer);
            }
        });
    }
}

void Forwarder::retrieve(Exchange& exchange, const ResourceRoute& route, const Target& target, const MediaType& type) {
    gather(exchange, type, "", [&] {
        const Asked asked = route.element.empty() ? Asked::list : Asked::element;
        return askFor(client_, *route.resource, route.element, parametersFrom(target.query, *route.resource, asked),
                      type.mimeType);
    });
}

void Forwarder::surface(Exchange& exchange, const std::string& display, const MediaType& type) {
    gather(exchange, type, surfaceSource, [&] { return readSurface(client_, display, type.mimeType); });
}

void Forwarder::placements(Exchange& exchange, const MediaType& type) {
    gather(exchange, type, placementsSource, [&] { return readPlacements(client_, type.mimeType); });
}

void Forwarder::change(Exchange& exchange, const ResourceRoute& route) {
    if (isFull(exchange)) return;
    Json body;
    if (route.command != kelo::commands::remove) {
        try {
            const std::string_view mimeType = bodyType(exchange.header("Content-Type"));
            body = hmx::client::decode(kelo::Payload::copyOf(exchange.body(), kelo::MimeType{mimeType}));
        } catch (const Error& error) {
            return exchange.answer(withOrigin(problem(400, util::printable(error.what(), 1024)), exchange.allowedOrigin));
        }
    }
    std::string command{kelo::commands::toName(route.command)};
    start(carryOut(client_, *route.resource, route.element, std::move(command), std::move(body)),
          [&exchange, command = route.command](hmx::client::Outcome<Reply> outcome) {
              if (!outcome) return exchange.answer(withOrigin(problem(outcome.error()), exchange.allowedOrigin));
              const Reply& reply = outcome.value();
              const bool isEmpty = reply.payload.empty();
              Answer answer = isEmpty ? Answer{204}
                                      : Answer{command == kelo::commands::insert ? 201 : 200, std::string{reply.payload.text()},
                                               kelo::mimetypes::applicationJson};
              if (command == kelo::commands::insert) answer.with("Location", locationIn(reply));
              exchange.answer(withOrigin(answer.with("Cache-Control", "no-store"), exchange.allowedOrigin));
          });
}

void Forwarder::status(Exchange& exchange, std::function<Answer(const Json&)> done) {
    if (isFull(exchange)) return;
    start(askForStatus(client_), [&exchange, done = std::move(done)](hmx::client::Outcome<Reply> outcome) {
        Json document;
        try {
            if (outcome) document = hmx::client::decode(outcome.value().payload);
        } catch (const Error&) {  // what cannot be read is as good as none
        }
        exchange.answer(done(document));
    });
}

}  // namespace hmxgateway
