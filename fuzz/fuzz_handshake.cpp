// Any bytes as everything that a peer sends: to the provider's end of a connection, or to a consumer's end that has sent
// requests. The bytes arrive in pieces, and the peer may read or not. Each request must end at most once, and finally all must
// have ended.
#include <sys/socket.h>

#include <memory>
#include <vector>

#include "comm/active_object.h"
#include "kelo/resource_handler.h"
#include "net/client_connection.h"
#include "net/server_connection.h"
#include "walk.h"

namespace {

using kelo::Response;

// Depending on the path's length, answers at once, never, with two values, or with an error.
class Resource final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        switch (request.path().size() % 4) {
            case 0:
                responder->next(Response{200, kelo::Payload{request.payload()}});
                return nullptr;
            case 1:
                open_.push_back(std::move(responder));
                return this;
            case 2:
                if (!responder->next(Response{200})) responder->next(Response{204});
                open_.push_back(std::move(responder));
                return this;
            default:
                responder->error(Response::createErrorResponse(404, "no"));
                return nullptr;
        }
    }
    void cancelRequest(void*) override { open_.clear(); }
    void clear() { open_.clear(); }

private:
    std::vector<std::unique_ptr<kelo::IResponder>> open_;
};

struct Ends {
    unsigned ended = 0;
    unsigned destroyed = 0;
};

class Handler final : public kelo::IResponseHandler<Response> {
public:
    explicit Handler(Ends& ends) : ends_{ends} {}
    ~Handler() override { ++ends_.destroyed; }
    bool onNext(const Response&) override {
        fuzz::require(!over_, "nothing follows a request's end");
        return false;
    }
    void onError(const Response&) override { end(); }
    void onCompleted() override { end(); }

private:
    void end() {
        fuzz::require(!over_, "a request ends once");
        over_ = true;
        ++ends_.ended;
    }
    Ends& ends_;
    bool over_ = false;
};

// Sends the bytes in pieces and lets the worker run in between.
void say(int fd, fuzz::Bytes bytes, std::size_t piece, comm::ActiveObject& worker) {
    while (!bytes.empty()) {
        const std::size_t size = std::min(piece, bytes.size());
        if (::send(fd, bytes.data(), size, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) break;
        bytes = bytes.subspan(size);
        worker.runPending();
    }
}

void asProvider(kelo::net::Descriptor ours, int theirs, fuzz::Bytes bytes, std::size_t piece) {
    comm::ActiveObject worker{"fuzz", comm::ActiveObject::ByHand{}};
    kelo::runtime::Counters counters;
    kelo::Limits limits;
    limits.oneShotRequests = 4;
    limits.openStreams = 4;
    limits.framesPerWakeUp = 2;
    Resource resource;
    kelo::SimpleComposedKeloService handlers;
    handlers.registerService("/", &resource);
    bool isClosed = false;
    auto service = std::make_shared<kelo::net::ServerConnection::Service>();
    service->path = "/fuzzed";
    service->application = "fuzzer";
    service->mimeTypes = "application/json";
    service->handlers = &handlers;
    service->shares = std::make_shared<kelo::net::Shares>(limits);
    service->platform = [](const kelo::Request&, kelo::IResponder& responder) { responder.completed(); };
    service->closed = [&](kelo::net::ServerConnection&) { isClosed = true; };
    const auto connection =
        std::make_shared<kelo::net::ServerConnection>(std::move(ours), kelo::net::Peer{}, limits, counters, service);
    kelo::post(worker, [&] {
        fuzz::require(connection->start(worker.loop()), "a connection starts");
        connection->expectHello();
    });
    worker.runPending();
    say(theirs, bytes, piece, worker);
    const auto usage = connection->usage();
    fuzz::require(usage.requests <= 4 && usage.streams <= 4, "limits hold");
    ::shutdown(theirs, SHUT_RDWR);
    worker.runPending();
    fuzz::require(isClosed, "the end of the connection is noticed");
    resource.clear();
    const auto left = connection->usage();
    fuzz::require(left.requests + left.streams + left.keptBytes == 0, "no request outlives its responder");
    worker.runPending();
}

void asConsumer(kelo::net::Descriptor ours, int theirs, fuzz::Bytes bytes, std::size_t piece) {
    comm::ActiveObject worker{"fuzz", comm::ActiveObject::ByHand{}};
    kelo::runtime::Counters counters;
    Ends ends;
    bool isClosed = false;
    std::shared_ptr<kelo::net::ClientConnection> connection;
    kelo::net::ClientConnection::Events events;
    // Requests are sent as soon as possible, so that the peer can answer them. Their ids are the same in every run, so a corpus
    // can contain them.
    events.ready = [&](kelo::net::ClientConnection& ready, const kelo::wire::Hello&) {
        for (unsigned i = 0; i < 3; ++i) ready.request(kelo::Request{"retrieve", "/r"}, std::make_unique<Handler>(ends), {});
    };
    events.closed = [&](kelo::net::ClientConnection&, const char*) { isClosed = true; };
    connection = std::make_shared<kelo::net::ClientConnection>(std::move(ours), kelo::net::Peer{}, kelo::Limits{}, counters,
                                                               "/fuzzed", std::move(events));
    kelo::post(worker, [&] {
        fuzz::require(connection->start(worker.loop()), "a connection starts");
        connection->sayHello("fuzzer");
    });
    worker.runPending();
    say(theirs, bytes, piece, worker);
    ::shutdown(theirs, SHUT_RDWR);
    worker.runPending();
    fuzz::require(isClosed, "the end of the connection is noticed");
    fuzz::require(ends.ended == ends.destroyed, "every request ends");
    fuzz::require(connection->usage().requests == 0, "no request outlives its connection");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) != 0) return 0;
    const kelo::net::Descriptor theirs{pair[1]};
    const bool isProvider = data[0] % 2 == 0;
    const std::size_t piece = data[1] == 0 ? size : data[1];
    const fuzz::Bytes bytes{data + 2, size - 2};
    (isProvider ? asProvider : asConsumer)(kelo::net::Descriptor{pair[0]}, theirs.get(), bytes, piece);
    return 0;
}
