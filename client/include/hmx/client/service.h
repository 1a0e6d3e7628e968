// Requests to one service, and their answers or the errors that come instead.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "hmx/client/deadline.h"
#include "hmx/client/document.h"
#include "hmx/client/inbox.h"
#include "kelo/kelo_api.h"

namespace hmx::client {

// What is handed to tasks has constructors: GCC 12 destroys braces of a plain struct within a co_await twice.

// Thread: any (a value).
struct Query {
    Query(std::string itsCommand, std::string itsPath, Json itsBody = nullptr)
        : command{std::move(itsCommand)}, path{std::move(itsPath)}, body(std::move(itsBody)) {}

    std::string command;  // "retrieve", "insert", "update" or "delete"
    std::string path;     // "/displays"
    Json body;            // parameters or body; null for none
};

// Thread: any (a value).
struct Answer {
    Answer() = default;
    Answer(std::uint16_t itsStatus, kelo::Payload itsPayload) : status{itsStatus}, payload{std::move(itsPayload)} {}

    std::uint16_t status = 0;
    kelo::Payload payload;  // the bytes and their mime type as the service sent them; owned
};

// Hears what is asked and answered, to log or to count it. Thread: the dispatcher's.
class IObserver {
public:
    virtual ~IObserver() = default;
    virtual void asked(const std::string& service, const Query& query) = 0;
    virtual void answered(const kelo::Response& response, std::chrono::steady_clock::duration after) = 0;
};

// How requests are made. Thread: any (a value).
struct RequestStyle {
    std::string mimeType{"application/json"};  // of bodies, and of the answers asked for
    bool acceptStale = false;                  // what was known of an origin that is lost is better than nothing
    bool patient = true;  // what fails because something is away is asked again until the deadline, if that does no harm
    IObserver* observer = nullptr;  // not owned; may be null
};

// A service that was found. A value, but for the API, which outlives it as the domain does. Thread: the dispatcher's.
class Service {
public:
    Service(Dispatcher& dispatcher, kelo::IKeloApi& api, std::string path, RequestStyle style)
        : dispatcher_{&dispatcher}, api_{&api}, path_{std::move(path)}, style_{std::move(style)} {}

    const std::string& path() const noexcept { return path_; }
    const std::string& mimeType() const noexcept { return style_.mimeType; }
    kelo::IKeloApi& api() const noexcept { return *api_; }
    Dispatcher& dispatcher() const noexcept { return *dispatcher_; }

    // Asks for one answer. Errors: Error, refused for any status but 2xx, late at the deadline, ended.
    Task<Answer> request(Query query, Deadline deadline) const;
    // The same, but a 404 is nothing.
    Task<std::optional<Answer>> find(Query query, Deadline deadline) const;
    // Asks and leaves the request open: its answers go to `inbox`, marked with `source`. Never blocks, never fails: what is known
    // at once comes as an event, too.
    [[nodiscard]] Stream open(const Query& query, const Inbox& inbox, std::size_t source) const;

    // "retrieve /displays at /hmx".
    [[nodiscard]] std::string describe(const Query& query) const;
    // The error that an event of a request stands for; nothing for a value.
    [[nodiscard]] std::optional<Error> errorOf(const Query& query, const Event& event) const;
    // The one for no answer at all.
    [[nodiscard]] Error late(const Query& query) const;

private:
    static Task<Answer> ask(Service self, Query query, Deadline deadline);
    static Task<std::optional<Answer>> seek(Service self, Query query, Deadline deadline);
    static Task<Answer> askOnce(const Service& self, const Query& query, const Deadline& deadline);
    kelo::Request makeRequest(const Query& query, bool oneShot) const;

    Dispatcher* dispatcher_;
    kelo::IKeloApi* api_;
    std::string path_;
    RequestStyle style_;
};

}  // namespace hmx::client
