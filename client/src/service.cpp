#include "hmx/client/service.h"

#include <utility>

#include "backoff.h"
#include "kelo/headers.h"
#include "kelo/tracing.h"

namespace hmx::client {
namespace {

bool isSuccess(std::uint16_t status) noexcept {
    return status >= 200 && status < 300;
}

std::string reasonOf(const kelo::Response& response) {
    const std::string_view plain = response.reason();
    if (!plain.empty()) return std::string{plain};
    return response.payload().empty() ? "" : compact(decode(response.payload()));
}

// Only who makes an error knows whether the request went out, and says so in its text.
Sent sentBy(const kelo::Response& response) {
    const std::uint16_t status = response.status();
    if (status != 503 && status != 504) return Sent::answered;
    return response.reason().find("not sent") == std::string_view::npos ? Sent::unknown : Sent::no;
}

// What only reads, or never left, can be asked again.
bool canRepeat(const Query& query, const Error& error) {
    return error.status() == 503 && (query.command == "retrieve" || error.sent() == Sent::no);
}

}  // namespace

std::string Service::describe(const Query& query) const {
    return query.command + " " + query.path + " at " + path_;
}

kelo::Request Service::makeRequest(const Query& query, bool oneShot) const {
    kelo::Request request{query.command, query.path};
    if (!query.body.is_null()) request.setPayload(encode(query.body, style_.mimeType));
    request.setMimeType(style_.mimeType);
    request.setAccept(style_.mimeType);
    request.setOneShot(oneShot);
    if (style_.acceptStale) request.headers().set("$stale", "accept");
    kelo::headers::appendTracingInfo(request, path_, kelo::tracing::getTraceClientId());
    kelo::headers::appendAuthInfo(request);
    return request;
}

std::optional<Error> Service::errorOf(const Query& query, const Event& event) const {
    const std::string tried = describe(query);
    if (event.kind == Event::Kind::completed) {
        return Error{Error::Kind::ended,
                     tried + ": the service ended the request",
                     {.tried = tried, .service = path_, .sent = Sent::answered}};
    }
    const std::uint16_t status = event.response.status();
    if (event.kind == Event::Kind::next && isSuccess(status)) return {};
    const std::string reason = reasonOf(event.response);
    return Error{Error::Kind::refused,
                 tried + ": " + std::to_string(status) + " " + (reason.empty() ? "no reason given" : reason),
                 {.tried = tried, .service = path_, .reason = reason, .status = status, .sent = sentBy(event.response)}};
}

Error Service::late(const Query& query) const {
    const std::string tried = describe(query);
    return Error{Error::Kind::late, tried + ": no answer in time", {.tried = tried, .service = path_, .sent = Sent::unknown}};
}

Task<Answer> Service::request(Query query, Deadline deadline) const {
    return ask(*this, std::move(query), deadline);
}

Task<std::optional<Answer>> Service::find(Query query, Deadline deadline) const {
    return seek(*this, std::move(query), deadline);
}

Task<Answer> Service::ask(Service self, Query query, Deadline deadline) {
    std::chrono::milliseconds pause = backoff::shortest;
    for (;;) {
        try {
            co_return co_await askOnce(self, query, deadline);
        } catch (const Error& error) {
            if (!self.style_.patient || !canRepeat(query, error) || deadline.left() <= pause) throw;
        }
        co_await self.dispatcher_->pause(pause);
        pause = backoff::next(pause);
    }
}

Task<Answer> Service::askOnce(const Service& self, const Query& query, const Deadline& deadline) {
    Inbox inbox{*self.dispatcher_};
    const auto asked = Deadline::Clock::now();
    if (self.style_.observer != nullptr) self.style_.observer->asked(self.path_, query);
    // A little longer than we wait ourselves, so that it is one and the same place where time runs out.
    const kelo::RequestLimits limits{.deadline = deadline.left() + std::chrono::seconds{1}};
    Stream stream{*self.api_, self.api_->request(self.makeRequest(query, true), inbox.makeHandler(0, true), limits)};
    const std::optional<Event> event = co_await inbox.take(deadline);
    if (!event) throw self.late(query);
    stream.release();
    if (event->kind == Event::Kind::completed) {
        if (query.command != "retrieve") co_return Answer{204, {}};
        const std::string tried = self.describe(query);
        throw Error{Error::Kind::ended,
                    tried + ": the service ended the request without an answer",
                    {.tried = tried, .service = self.path_, .sent = Sent::answered}};
    }
    if (self.style_.observer != nullptr) self.style_.observer->answered(event->response, Deadline::Clock::now() - asked);
    if (const std::optional<Error> error = self.errorOf(query, *event)) throw Error{*error};
    co_return Answer{event->response.status(), event->response.payload()};
}

Task<std::optional<Answer>> Service::seek(Service self, Query query, Deadline deadline) {
    try {
        co_return co_await ask(std::move(self), std::move(query), deadline);
    } catch (const Error& error) {
        if (!error.isNotFound()) throw;
    }
    co_return std::nullopt;
}

Stream Service::open(const Query& query, const Inbox& inbox, std::size_t source) const {
    if (style_.observer != nullptr) style_.observer->asked(path_, query);
    return Stream{*api_, api_->request(makeRequest(query, false), inbox.makeHandler(source, false))};
}

}  // namespace hmx::client
