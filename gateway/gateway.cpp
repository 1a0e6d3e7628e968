// A request is admitted by its headers alone, then routed, then answered: by the page, by an endpoint, by the bridge through the
// forwarder, or, if it wants an event stream, by the hub. What is refused is refused before its body is read.
//
// One thread does all of this. Its loop sleeps in one epoll descriptor, in which lie the HTTP server's and the client library's;
// at the end of each turn, answers are sent, then what has been gathered for the bridge, and texts that nobody is reading are
// forgotten. Timers are set only when something is due.

#include "gateway.h"

#include <sys/epoll.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

#include "gateway_limits.h"
#include "input_surface.h"
#include "json_text.h"
#include "openapi.h"
#include "options.h"
#include "placements.h"
#include "problem.h"
#include "tracing/channel.h"
#include "util/text.h"
#include "watches.h"

namespace hmxgateway {
namespace {

const tracing::Channel channel{"HMX_GATEWAY"};

constexpr std::string_view contentSecurityPolicy{
    "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"};

constexpr std::string_view noRecordings{"this gateway serves no recordings; --recordings DIRECTORY lets it"};

// What the headers have said: found out when they came, and used when the whole request is there. Thread: the gateway's.
struct Plan {
    Target target;
    Route route;
};

// Tells the event ids of this process from those of one before it.
std::string newGeneration() {
    std::random_device random;
    char text[20];
    std::snprintf(text, sizeof text, "%08x%04x", random(), random() & 0xFFFFU);
    return text;
}

std::string_view hostOf(const Exchange& exchange, const Target& target) {
    return target.authority.empty() ? exchange.header("Host") : std::string_view{target.authority};
}

bool isChange(const Route& route) {
    const auto* resource = std::get_if<ResourceRoute>(&route);
    return resource != nullptr && resource->command != kelo::commands::retrieve;
}

std::string_view subjectOf(const Route& route) {
    if (const auto* resource = std::get_if<ResourceRoute>(&route)) return resource->resource->name;
    if (const auto* endpoint = std::get_if<EndpointRoute>(&route)) return endpoint->form->name;
    if (std::holds_alternative<SurfaceRoute>(route)) return "input";
    if (std::holds_alternative<PlacementsRoute>(route)) return "output";
    if (std::holds_alternative<RecordingRoute>(route)) return "recordings";
    if (std::holds_alternative<PageRoute>(route)) return "page";
    return "other";
}

}  // namespace

Gateway::Gateway(EventLoop& loop, hmx::client::Client& client, GatewayOptions options, Descriptor listening)
    : loop_{loop},
      client_{client},
      options_{std::move(options)},
      admission_{options_.admission},
      hub_{newGeneration()},
      forwarder_{client},
      supervision_{loop, client},
      server_{loop, *this, std::move(listening)},
      comments_{loop,
                [this] {
                    hub_.commentAll();
                    if (hub_.viewers() > 0) comments_.set(EventLoop::Clock::now() + limits.comment);
                }},
      expiry_{loop, [this] { expiry_.set(hub_.expire(EventLoop::Clock::now())); }},
      dispatches_{loop, [this] { hasNews_ = true; }} {
    hub_.onUnwatched = [this] {
        if (!expiry_.at()) expiry_.set(EventLoop::Clock::now() + limits.linger);
    };
    loop_.watch(client_.descriptor(), EPOLLIN, [this] { hasNews_ = true; });
    loop_.afterTurn([this] { turn(); });
    loop_.again();  // the supervisor is told without waiting for the first request
}

Gateway::~Gateway() {
    loop_.afterTurn({});
    loop_.forget(client_.descriptor());
    hub_.onUnwatched = {};
}

void Gateway::turn() {
    if (std::exchange(hasNews_, false)) client_.dispatch();
    server_.turn();
    forwarder_.flush();
    hub_.forgetTexts();
    if (server_.isReady()) loop_.again();
    dispatches_.set(client_.nextTimer());
    supervision_.turn();
}

// --- Admission ---------------------------------------------------------------------------------------------------------------

bool Gateway::isAdmitted(Exchange& exchange, const Target& target) {
    Credentials asked;
    asked.host = hostOf(exchange, target);
    asked.hasOneHost = exchange.countHeader("Host") <= 1;
    asked.origin = exchange.header("Origin");
    asked.fetchSite = exchange.header("Sec-Fetch-Site");
    asked.fetchMode = exchange.header("Sec-Fetch-Mode");
    asked.authorization = exchange.header("Authorization");
    asked.isForeignUser = exchange.isForeignUser();
    const bool isPreflight = exchange.method() == "OPTIONS" && !exchange.header("Access-Control-Request-Method").empty();
    if (const std::optional<Refusal> refusal = admission_.refusal(asked, isPreflight)) {
        exchange.refuse(*refusal);
        return false;
    }
    if (admission_.isAllowedOrigin(asked.origin)) exchange.allowedOrigin = asked.origin;
    return true;
}

void Gateway::begin(Exchange& exchange) {
    std::optional<Target> target = parseTarget(exchange.target());
    if (!target) return exchange.refuse(Refusal::target);
    if (!isAdmitted(exchange, *target)) return;
    Route found = route(exchange.method(), *target);
    exchange.subject = subjectOf(found);
    if (std::holds_alternative<NoPath>(found)) return exchange.refuse(Refusal::path);
    if (const auto* method = std::get_if<NoMethod>(&found)) {
        if (exchange.method() == "OPTIONS") return preflight(exchange, method->allowed);
        Answer answer = problem(Refusal::method);
        refused(Refusal::method, answer.status());
        return exchange.answer(answer.with("Allow", method->allowed));
    }
    if (isChange(found)) {
        if (!options_.allowChanges) return exchange.refuse(Refusal::changes);
        const bool hasBody = std::get<ResourceRoute>(found).command != kelo::commands::remove;
        if (hasBody && bodyType(exchange.header("Content-Type")).empty()) return exchange.refuse(Refusal::contentType);
    }
    exchange.plan = std::make_shared<const Plan>(Plan{*std::move(target), std::move(found)});
}

void Gateway::preflight(Exchange& exchange, const std::string& allowed) {
    Answer answer{204};
    answer.with("Allow", allowed);
    if (!exchange.allowedOrigin.empty()) {
        answer.with("Access-Control-Allow-Methods", allowed)
            .with("Access-Control-Allow-Headers", "Authorization, Content-Type, If-None-Match, If-Range, Last-Event-ID, Range")
            .with("Access-Control-Max-Age", "600");
    }
    exchange.answer(withOrigin(answer, exchange.allowedOrigin));
}

void Gateway::complete(Exchange& exchange) {
    const auto& [target, found] = *static_cast<const Plan*>(exchange.plan.get());
    if (const auto* asked = std::get_if<ResourceRoute>(&found)) return resource(exchange, *asked, target);
    if (const auto* asked = std::get_if<SurfaceRoute>(&found)) {
        return outside(exchange, surfaceSource,
                       [&](const MediaType& type) { forwarder_.surface(exchange, asked->display, type); });
    }
    if (std::holds_alternative<PlacementsRoute>(found)) {
        return outside(exchange, placementsSource, [&](const MediaType& type) { forwarder_.placements(exchange, type); });
    }
    if (const auto* asked = std::get_if<RecordingRoute>(&found)) return recording(exchange, *asked);
    if (const auto* asked = std::get_if<EndpointRoute>(&found)) return endpoint(exchange, *asked, target);
    page(exchange, std::get<PageRoute>(found));
}

void Gateway::ended(Exchange& exchange) {
    metrics_.countRequest(exchange.subject, exchange.status());
    if (!channel.isEnabled(1)) return;
    logCV(channel, 1, "%s %s: %d", std::string{exchange.method()}.c_str(), util::printable(exchange.target()).c_str(),
          exchange.status());
}

void Gateway::refused(Refusal refusal, int status) {
    metrics_.countRefusal(refusal);
    const RefusalForm& form = formOf(refusal);
    logCV(channel, 3, "refused with %d: %.*s", status, static_cast<int>(form.reason.size()), form.reason.data());
}

// --- Answers -----------------------------------------------------------------------------------------------------------------

const MediaType* Gateway::typeFor(Exchange& exchange) {
    const MediaType* type = choose(exchange.header("Accept"), answerTypes());
    if (type == nullptr) exchange.refuse(Refusal::accept);
    return type;
}

void Gateway::resource(Exchange& exchange, const ResourceRoute& route, const Target& target) {
    if (route.command != kelo::commands::retrieve) return forwarder_.change(exchange, route);
    const MediaType* type = typeFor(exchange);
    if (type == nullptr) return;
    try {
        if (type->name == eventStreamType) {
            const std::optional<Watch> watched = watchFor(client_, std::string{exchange.target()});
            return watched ? watch(exchange, {*watched}, false) : exchange.refuse(Refusal::path);
        }
        forwarder_.retrieve(exchange, route, target, *type);
    } catch (const hmx::client::Error& error) {
        exchange.refuse(Refusal::parameters, util::printable(error.what()));
    }
}

template <class Read>
void Gateway::outside(Exchange& exchange, std::string_view source, Read read) {
    const MediaType* type = typeFor(exchange);
    if (type == nullptr) return;
    if (type->name != eventStreamType) return read(*type);
    if (const std::optional<Watch> watched = watchFor(client_, std::string{exchange.target()})) {
        watch(exchange, {*watched}, false, source);
    } else {
        exchange.refuse(Refusal::path);
    }
}

void Gateway::events(Exchange& exchange, const Target& target) {
    static constexpr MediaType streamOnly[]{{eventStreamType, ""}};
    if (choose(exchange.header("Accept"), streamOnly) == nullptr) return exchange.refuse(Refusal::accept);
    std::vector<Watch> watches;
    for (const auto& [key, value] : target.query) {
        if (key != "watch") return exchange.refuse(Refusal::parameters, util::printable(key) + ": only watch is known");
        try {
            std::optional<Watch> watched = watchFor(client_, value);
            if (!watched) return exchange.refuse(Refusal::parameters, util::printable(value) + " cannot be watched");
            watches.push_back(*std::move(watched));
        } catch (const hmx::client::Error& error) {
            return exchange.refuse(Refusal::parameters, util::printable(error.what()));
        }
    }
    if (watches.empty()) return exchange.refuse(Refusal::parameters, "watch=PATH is missing");
    if (watches.size() > limits.watchesPerStream) return exchange.refuse(Refusal::topics);
    watch(exchange, watches, true);
}

void Gateway::watch(Exchange& exchange, const std::vector<Watch>& watches, bool wrapped, std::string_view source) {
    Answer answer{200};
    answer.with("Content-Type", eventStreamType)
        .with("Cache-Control", "no-store")
        .with("Vary", "Accept")
        .with("X-Accel-Buffering", "no");
    if (!source.empty()) answer.with(sourceHeader, source);
    answer = withOrigin(answer, exchange.allowedOrigin);
    if (exchange.method() == "HEAD") return exchange.answer(answer);
    if (hub_.viewers() >= limits.streams) return exchange.refuse(Refusal::streams);
    std::unique_ptr<Viewer> viewer =
        hub_.join(watches, wrapped, exchange.header("Last-Event-ID"), [&exchange] { exchange.wake(); });
    if (!viewer) return exchange.refuse(Refusal::topics);
    if (!comments_.at()) comments_.set(EventLoop::Clock::now() + limits.comment);
    exchange.stream(answer, std::make_unique<EventStream>(std::move(viewer)));
}

void Gateway::endpoint(Exchange& exchange, const EndpointRoute& route, const Target& target) {
    const EndpointForm& form = *route.form;
    const auto answer = [&](std::string body) {
        Answer made{200, std::move(body), form.mediaType};
        exchange.answer(withOrigin(made.with("Cache-Control", "no-cache"), exchange.allowedOrigin));
    };
    switch (form.endpoint) {
        case Endpoint::about:
            return answer(json::object({{"version", json::text(version())},
                                        {"changes", options_.allowChanges ? "true" : "false"},
                                        {"recordings", options_.recordings.areServed() ? "true" : "false"}}));
        case Endpoint::events:
            return events(exchange, target);
        case Endpoint::recordings:
            if (!options_.recordings.areServed()) return exchange.refuse(Refusal::path, noRecordings);
            return answer(options_.recordings.list());
        case Endpoint::openapi:
            if (openApi_.empty()) {
                openApi_ = openApi({options_.allowChanges, options_.recordings.areServed()}, std::string{version()});
            }
            return answer(openApi_);
        case Endpoint::healthz:
            return answer("ok\n");
        case Endpoint::readyz:
            return forwarder_.status(exchange, [&form](const Forwarder::Json& status) {
                return status.is_null() ? problem(503, "/hmx does not answer", "no") : Answer{200, "ok\n", form.mediaType};
            });
        case Endpoint::metrics:
            return metrics(exchange, form);
    }
}

void Gateway::metrics(Exchange& exchange, const EndpointForm& form) {
    forwarder_.status(exchange, [this, &form](const Forwarder::Json& status) {
        const Gauges gauges{server_.connections(), hub_.viewers(), hub_.topics(), hub_.events(), hub_.cutViewers()};
        return Answer{200, metrics_.text(gauges, status), form.mediaType}.with("Cache-Control", "no-store");
    });
}

void Gateway::recording(Exchange& exchange, const RecordingRoute& route) {
    if (!options_.recordings.areServed()) return exchange.refuse(Refusal::path, noRecordings);
    std::optional<RecordingFile> file = options_.recordings.open(route.name);
    if (!file) return exchange.refuse(Refusal::path, "there is no such recording; /recordings lists them");
    const std::string tag = file->tag;
    const auto answer = [&](int status) {
        Answer made = status == 304 ? Answer{status} : Answer{status, "", recordingType};
        made.with("ETag", tag).with("Cache-Control", "no-cache").with("Accept-Ranges", "bytes");
        return withOrigin(made, exchange.allowedOrigin);
    };
    if (namesTag(exchange.header("If-None-Match"), tag)) return exchange.answer(answer(304));
    const std::string_view condition = exchange.header("If-Range");
    const bool isRanged = !exchange.header("Range").empty() && (condition.empty() || condition == tag);
    const std::optional<ByteRange> range = rangeIn(isRanged ? exchange.header("Range") : std::string_view{}, file->size);
    if (!range) {
        Answer refusal = problem(Refusal::range);
        refused(Refusal::range, refusal.status());
        return exchange.answer(
            withOrigin(refusal.with("Content-Range", "bytes */" + std::to_string(file->size)), exchange.allowedOrigin));
    }
    const bool isPart = range->length < file->size;
    Answer made = answer(isPart ? 206 : 200);
    if (isPart) {
        made.with("Content-Range", "bytes " + std::to_string(range->offset) + "-" +
                                       std::to_string(range->offset + range->length - 1) + "/" + std::to_string(file->size));
    }
    made.with("Content-Disposition", "attachment");
    if (range->length == 0) return exchange.answer(made);
    std::unique_ptr<IStream> bytes = options_.recordings.send(*std::move(file), range->offset, range->length);
    if (!bytes) return exchange.refuse(Refusal::recordings);
    exchange.send(made, std::move(bytes), range->length, limits.blockBytes);
}

void Gateway::page(Exchange& exchange, const PageRoute& route) {
    const PageFile* file = options_.page.find(route.path);
    if (file == nullptr) {
        const bool isRoot = route.path.empty();
        return exchange.refuse(Refusal::path, isRoot ? "the inspector's page is not there; `make inspector` builds it" : "");
    }
    const bool isKnown = namesTag(exchange.header("If-None-Match"), file->tag);
    Answer answer = isKnown ? Answer{304} : Answer{200, file->content, file->mediaType};
    answer.with("ETag", file->tag).with("Cache-Control", file->isLasting ? "public, max-age=31536000, immutable" : "no-cache");
    answer.with("Content-Security-Policy", contentSecurityPolicy).with("Referrer-Policy", "no-referrer");
    exchange.answer(answer);
}

}  // namespace hmxgateway
