// The gateway: what happens to each request, from admission to its answer.
#pragma once

#include <optional>
#include <string>

#include "admission.h"
#include "event_hub.h"
#include "event_loop.h"
#include "forwarder.h"
#include "hmx/client/client.h"
#include "http_server.h"
#include "metrics.h"
#include "page.h"
#include "recordings.h"
#include "router.h"
#include "supervision.h"

namespace hmxgateway {

// Thread: any (a value).
struct GatewayOptions {
    bool allowChanges = false;
    Admission::Rules admission{};
    Page page{};
    Recordings recordings{};
};

// A resource. Thread: its loop's.
class Gateway final : public IHttpHandler {
public:
    // Loop and client outlive it. Errors: std::runtime_error.
    Gateway(EventLoop& loop, hmx::client::Client& client, GatewayOptions options, Descriptor listening);
    ~Gateway() override;

    void begin(Exchange& exchange) override;
    void complete(Exchange& exchange) override;
    void ended(Exchange& exchange) override;
    void refused(Refusal refusal, int status) override;

private:
    void turn();
    bool isAdmitted(Exchange& exchange, const Target& target);
    void preflight(Exchange& exchange, const std::string& allowed);
    void resource(Exchange& exchange, const ResourceRoute& route, const Target& target);
    // What is no part of /hmx: followed, or read with `read(type)`.
    template <class Read>
    void outside(Exchange& exchange, std::string_view source, Read read);
    void recording(Exchange& exchange, const RecordingRoute& route);
    void endpoint(Exchange& exchange, const EndpointRoute& route, const Target& target);
    void page(Exchange& exchange, const PageRoute& route);
    void events(Exchange& exchange, const Target& target);
    void watch(Exchange& exchange, const std::vector<Watch>& watches, bool wrapped, std::string_view source = {});
    const MediaType* typeFor(Exchange& exchange);
    void metrics(Exchange& exchange, const EndpointForm& form);

    EventLoop& loop_;
    hmx::client::Client& client_;
    GatewayOptions options_;
    Admission admission_;
    Metrics metrics_;
    EventHub hub_;
    Forwarder forwarder_;
    std::string openApi_;
    Supervision supervision_;
    HttpServer server_;  // ends first: viewers stand on the hub
    Timer comments_;
    Timer expiry_;
    Timer dispatches_;
    bool hasNews_ = true;  // for the client library to dispatch
};

}  // namespace hmxgateway
