// Requests that go through to the bridge, and the answers that come back.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/client.h"
#include "hmx/client/document.h"
#include "http_server.h"
#include "media_types.h"
#include "router.h"

namespace hmxgateway {

// Thread: the gateway's.
class Forwarder {
public:
    using Json = hmx::client::Json;

    // `client` outlives it, and it outlives no request's connection.
    explicit Forwarder(hmx::client::Client& client) : client_{client} {}
    ~Forwarder();

    // Each answers the exchange, now or later. Retrieves that are alike and come in the same turn are one for the bridge.
    // Errors of the first: hmx::client::Error, invalid, for parameters that the resource does not take.
    void retrieve(Exchange& exchange, const ResourceRoute& route, const Target& target, const MediaType& type);
    void surface(Exchange& exchange, const std::string& display, const MediaType& type);
    void placements(Exchange& exchange, const MediaType& type);
    void change(Exchange& exchange, const ResourceRoute& route);
    // The bridge's document about its process; null when it does not answer. `done` answers the exchange.
    void status(Exchange& exchange, std::function<Answer(const Json&)> done);

    // At the end of each turn: sends what has been gathered.
    void flush();

private:
    using Task = hmx::client::Task<hmx::client::Answer>;
    struct Shared {
        Task task;
        std::string_view mediaType;
        std::vector<Exchange*> exchanges;
        std::string_view source;  // that the answer names; "" for /hmx
    };

    template <class Ask>
    void gather(Exchange& exchange, const MediaType& type, std::string_view source, Ask ask);
    void start(Task task, std::function<void(hmx::client::Outcome<hmx::client::Answer>)> done);
    bool isFull(Exchange& exchange) const;

    hmx::client::Client& client_;
    std::map<std::string, Shared, std::less<>> gathered_;
    std::string key_;  // of the request that is being gathered
    std::list<hmx::client::Operation> operations_;
};

// The problem that an error of the client library is to an HTTP client. Thread: the gateway's.
[[nodiscard]] Answer problem(const hmx::client::Error& error);

// The answer, also for a page of another origin if that is admitted. Thread: the gateway's.
[[nodiscard]] Answer withOrigin(Answer answer, std::string_view allowedOrigin);

}  // namespace hmxgateway
