#include "service.h"

#include <array>
#include <cstdio>
#include <ostream>
#include <thread>

#include "kelo/headers.h"
#include "kelo/tracing.h"
#include "text.h"

namespace hmxctl {
namespace {

std::string reasonOf(const kelo::Response& response) {
    const std::string_view plain = response.reason();
    if (!plain.empty()) return printable(plain);
    return response.payload().empty() ? "no reason given" : printable(compact(decode(response.payload())));
}

std::string hintFor(std::uint16_t status, const std::string& service) {
    switch (exitCodeOf(status)) {
        case ExitCode::serviceAbsent:
            return service == "/hmx" ? "`hmxctl services` shows what is there; a bridge without its upstream answers like this"
                                     : "`hmxctl services` shows what is there";
        case ExitCode::timeout:
            return "that is the service's own time limit; `hmxctl status " + service + "` shows what it waits for";
        case ExitCode::notFound:
            if (service == "/hmxsim") return "`hmxctl sim world` shows what there is";
            return service == "/hmx" ? "`hmxctl describe` shows the paths and commands that there are" : "";
        case ExitCode::rejected:
            if (service == "/hmxsim") return "`hmxctl help sim` shows the forms";
            if (status >= 500) return "the log of the service may tell more";
            return service == "/hmx" ? "`hmxctl describe RESOURCE` shows what it takes" : "";
        default:
            return {};
    }
}

// What only reads, or never left, can be asked again.
bool canRepeat(const Query& query, const Failure& failure) {
    if (failure.status() != 503) return false;
    return query.command == "retrieve" || std::string_view{failure.what()}.find("not sent") != std::string_view::npos;
}

}  // namespace

std::string describeQuery(const Query& query, const std::string& service) {
    return query.command + " " + query.path + " at " + service;
}

kelo::Request Service::makeRequest(const Query& query, bool oneShot) const {
    kelo::Request request{query.command, query.path};
    if (!query.body.is_null()) request.setPayload(encode(query.body, mimeType_));
    request.setMimeType(mimeType_);
    request.setAccept(mimeType_);
    request.setOneShot(oneShot);
    kelo::headers::appendTracingInfo(request, path_, kelo::tracing::getTraceClientId());
    kelo::headers::appendAuthInfo(request);
    return request;
}

Failure Service::failure(const Query& query, const kelo::Response& response) const {
    const std::uint16_t status = response.status();
    return Failure{exitCodeOf(status), describeQuery(query, path_) + ": " + std::to_string(status) + " " + reasonOf(response),
                   hintFor(status, path_), status};
}

Failure Service::timedOut(const Query& query) const {
    return Failure{ExitCode::timeout, describeQuery(query, path_) + ": no answer in time", "--timeout lets it wait longer"};
}

Answer Service::request(const Query& query, const Deadline& deadline) const {
    constexpr std::chrono::milliseconds longestPause{400};
    std::chrono::milliseconds pause{20};
    for (;;) {
        try {
            return requestOnce(query, deadline);
        } catch (const Failure& failure) {
            if (!patient_ || !canRepeat(query, failure) || deadline.left() <= pause) throw;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
    }
}

Answer Service::requestOnce(const Query& query, const Deadline& deadline) const {
    const auto inbox = std::make_shared<Inbox>();
    const auto asked = Deadline::Clock::now();
    trace(query);
    // A little longer than we wait ourselves, so that it is one and the same place where time runs out.
    const kelo::RequestLimits limits{.deadline = deadline.left() + std::chrono::seconds{1}};
    void* handle = api_.request(makeRequest(query, true), makeHandler(inbox, 0, true), limits);
    const std::optional<Event> event = inbox->take(deadline);
    if (!event) {
        if (handle != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) api_.cancel(handle);
        throw timedOut(query);
    }
    if (event->kind == Event::Kind::completed) {
        if (query.command == "retrieve") {
            throw Failure{ExitCode::streamEnded,
                          describeQuery(query, path_) + ": the service ended the request without an answer"};
        }
        return {204, {}};
    }
    trace(event->response, asked);
    if (event->kind == Event::Kind::error || exitCodeOf(event->response.status()) != ExitCode::ok) {
        throw failure(query, event->response);
    }
    return {event->response.status(), event->response.payload()};
}

std::optional<Answer> Service::find(const Query& query, const Deadline& deadline) const {
    try {
        return request(query, deadline);
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::notFound) return {};
        throw;
    }
}

Stream Service::open(const Query& query, const std::shared_ptr<Inbox>& inbox, std::size_t source) const {
    trace(query);
    return Stream{api_, api_.request(makeRequest(query, false), makeHandler(inbox, source, false))};
}

void Service::trace(const Query& query) const {
    if (trace_ == nullptr) return;
    *trace_ << "hmxctl: > " << describeQuery(query, path_);
    if (!query.body.is_null()) *trace_ << ' ' << printable(compact(query.body));
    *trace_ << '\n';
}

void Service::trace(const kelo::Response& response, Deadline::Clock::time_point asked) const {
    if (trace_ == nullptr) return;
    const std::chrono::duration<double, std::milli> elapsed = Deadline::Clock::now() - asked;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.1f", elapsed.count());
    *trace_ << "hmxctl: < " + printable(response.toString()) + " after " + time.data() + " ms\n";
}

}  // namespace hmxctl
