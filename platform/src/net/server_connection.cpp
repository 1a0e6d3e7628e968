#include "net/server_connection.h"

#include <exception>
#include <utility>

#include "tracing/channel.h"
#include "util/block_pool.h"

// Each request that a client sends is open from its frame until its responder ends it or is destroyed. The table of open requests
// is the one truth about whether an answer may still be written: a responder is no more than the connection and an id, so that it
// can be owned, moved and destroyed anywhere, and one that speaks of a request that is over is not heard.
//
// A cancelled request stays in the table, counted against the client's limits, until its responder is destroyed: a client that
// cancels faster than the bridge can give up its work gains nothing.
//
// A stream's values are states, of which only the newest matters. While a peer is slow, a new value replaces the one that waits
// for it, so that a peer that never reads costs one value a stream, and one that resumes gets what is true now. One-shot and
// terminal answers always go out.
//
// A client that ends its side, having asked all that it wants to know, gets one answer to each request that has had none: streams
// become one-shot requests, or are completed if they have had a value. With the last answer the connection ends, or when a
// request's deadline has passed: nobody could tell a client that waits from one that has forgotten the connection.
//
// `cancelRequest` is called by the thread that reads, which is also the one that called `actionRequest`, so a handle is known by
// then; never with the lock held. Since nobody else asks for handles, the last one is entered into the table when that thread has
// the lock for the next thing that it does.

namespace kelo::net {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::string_view platformRoot = "/$platform/";

class Responder final : public IResponder, public util::Pooled {
public:
    Responder(std::shared_ptr<ServerConnection> connection, std::uint64_t id) : connection_{std::move(connection)}, id_{id} {}
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder() override {
        if (hadLast_) return;
        try {
            connection_->abandon(id_);
        } catch (const std::exception&) {
            connection_->shutDown();  // no memory for the last word to this client: the end of its connection says as much
        }
    }

    bool next(const Response& response) override {
        const auto taken = connection_->next(id_, response);
        hadLast_ = hadLast_ || taken == ServerConnection::Taken::asTheLast;
        return taken != ServerConnection::Taken::andMoreWanted;
    }
    void error(const Response& response) override { connection_->terminate(id_, wire::FrameType::error, &response); }
    void completed() override { connection_->terminate(id_, wire::FrameType::completed, nullptr); }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const std::uint64_t id_;
    bool hadLast_ = false;  // then the connection has forgotten the request
};

}  // namespace

ServerConnection::ServerConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                                   std::shared_ptr<const Service> service)
    : FrameStream{std::move(socket), std::move(peer), limits, counters}, service_{std::move(service)} {
    ++counters_.connectionsAccepted;
    ++counters_.connectionsOpen;
}

void ServerConnection::expectHello() {
    patience_.emplace(loop(), [this] {
        ++counters_.peersRefused;
        close("no hello in time");
    });
    patience_->arm(Clock::now() + limits_.handshake);
}

std::size_t ServerConnection::openRequests() const {
    const std::lock_guard lock{mutex_};
    return requests_.size();
}

const char* ServerConnection::handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) {
    if (header.type == wire::FrameType::hello) return handleHello(body);
    if (!ready_) return "a request before the hello";
    switch (header.type) {
        case wire::FrameType::request:
            return handleRequest(header, body);
        case wire::FrameType::cancel:
            if (const char* wrong = wire::readBare(body)) return wrong;
            handleCancel(header.requestId);
            return nullptr;
        default:
            return "a consumer answers nothing";
    }
}

const char* ServerConnection::handleHello(std::span<const std::uint8_t> body) {
    if (ready_) return "a second hello";
    wire::Hello hello;
    if (const char* wrong = wire::readHello(body, hello)) return wrong;
    if (hello.version != wire::protocolVersion) return "another version of the protocol";
    if (hello.servicePath != service_->path) return "a hello to another service";
    patience_.reset();
    peerClientId_ = hello.application.empty() ? "unnamed" : hello.application;
    {
        const std::lock_guard lock{mutex_};
        peer_.application = hello.application;
        ready_ = true;
        wire::appendHello(outLocked(), {wire::protocolVersion, service_->application, {}, service_->mimeTypes});
    }
    commit();
    return nullptr;
}

const char* ServerConnection::handleRequest(const wire::FrameHeader& header, std::span<const std::uint8_t> body) {
    if (const char* wrong = wire::readRequest(body, peerClientId_, request_, requestFields_)) return wrong;
    request_.setOneShot((header.flags & wire::flagOneShot) != 0);
    const std::uint64_t id = header.requestId;
    bool refused = false;
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        if (request_.isOneShot() ? oneShots_ >= limits_.oneShotRequests : streams_ >= limits_.openStreams) {
            if (requests_.find(id) != nullptr) return "a request id used twice";
            refused = true;
            ++counters_.requestsRefused;
            wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                                 Response::createErrorResponse(503, service_->path + ": too many requests in flight"));
        } else {
            Open* const open = requests_.put(id, std::make_unique<Open>());
            if (open == nullptr) return "a request id used twice";
            open->oneShot = request_.isOneShot();
            ++(open->oneShot ? oneShots_ : streams_);
            ++counters_.requestsAccepted;
        }
    }
    if (refused) {
        commit();
    } else {
        dispatch(id);
    }
    return nullptr;
}

void ServerConnection::dispatch(std::uint64_t id) {
    auto responder = std::make_unique<Responder>(std::static_pointer_cast<ServerConnection>(shared_from_this()), id);
    if (request_.path().starts_with(platformRoot)) {
        service_->platform(request_, *responder);
        return;
    }
    IResourceHandler* const handler = service_->handlers->find(request_.path());
    if (handler == nullptr) {
        responder->error(
            Response::createErrorResponse(404, service_->path + " has no resource for the path '" + request_.path() + "'"));
        return;
    }
    void* handle = nullptr;
    try {
        handle = handler->actionRequest(request_, std::move(responder), request_.clientId());
    } catch (const std::exception& error) {
        tracing::logCV(channel, 4, "%s: request '%s' '%s' ended with an exception: %s", service_->path.c_str(),
                       request_.command().c_str(), request_.path().c_str(), error.what());
    } catch (...) {
        tracing::logCV(channel, 4, "%s: request '%s' '%s' ended with an unknown exception", service_->path.c_str(),
                       request_.command().c_str(), request_.path().c_str());
    }
    dispatched_ = {id, handler, handle};
}

void ServerConnection::noteDispatchedLocked() {
    if (dispatched_.handle == nullptr) return;
    if (Open* const open = requests_.find(dispatched_.id)) {
        open->handler = dispatched_.handler;
        open->handle = dispatched_.handle;
    }
    dispatched_ = {};
}

void ServerConnection::handleCancel(std::uint64_t id) {
    IResourceHandler* handler = nullptr;
    void* handle = nullptr;
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        Open* const open = answerableLocked(id);
        if (open == nullptr) {
            ++counters_.lateFrames;
            return;
        }
        open->cancelled = true;
        open->waiting = false;
        open->latest = util::ByteBufferWriter{};
        handler = open->handler;
        handle = open->handle;
    }
    ++counters_.cancelled;
    if (handle != nullptr) handler->cancelRequest(handle);
}

ServerConnection::Taken ServerConnection::next(std::uint64_t id, const Response& response) {
    bool last = false;
    {
        const std::lock_guard lock{mutex_};
        Open* const open = answerableLocked(id);
        if (open == nullptr) return Taken::unwanted;
        last = open->oneShot;
        open->answered = true;
        if (!last && isSlowLocked()) {
            open->latest.clear();
            if (appendAnswerLocked(open->latest, wire::FrameType::next, 0, id, response)) {
                if (open->waiting) {
                    ++counters_.valuesConflated;
                } else {
                    waiting_.push_back(id);
                    open->waiting = true;
                }
                return Taken::andMoreWanted;
            }
            outLocked().write(open->latest.bytes());  // the error in its stead
            last = true;
        } else {
            open->waiting = false;  // what waited is older than this
            last =
                !appendAnswerLocked(outLocked(), wire::FrameType::next, last ? wire::flagEnd : std::uint8_t{0}, id, response) ||
                last;
        }
        if (last) eraseLocked(id);
    }
    commit();
    return last ? Taken::asTheLast : Taken::andMoreWanted;
}

void ServerConnection::terminate(std::uint64_t id, wire::FrameType type, const Response* response) {
    {
        const std::lock_guard lock{mutex_};
        Open* const open = answerableLocked(id);
        if (open == nullptr) return;
        auto& out = outLocked();
        if (open->waiting) out.write(open->latest.bytes());
        if (response != nullptr) {
            appendAnswerLocked(out, type, 0, id, *response);
        } else {
            wire::appendBare(out, type, id);
        }
        eraseLocked(id);
    }
    commit();
}

void ServerConnection::abandon(std::uint64_t id) {
    {
        const std::lock_guard lock{mutex_};
        const Open* const open = requests_.find(id);
        if (open == nullptr) return;
        const bool silent = open->cancelled || isClosedLocked();
        if (!silent) {
            ++counters_.answeredByNobody;
            wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                                 Response::createErrorResponse(503, service_->path + ": no answer"));
        }
        eraseLocked(id);
        if (silent) return;
    }
    commit();
}

// The request, if answers to it are still wanted.
ServerConnection::Open* ServerConnection::answerableLocked(std::uint64_t id) {
    Open* const open = requests_.find(id);
    return open == nullptr || open->cancelled || isClosedLocked() ? nullptr : open;
}

// Appends a frame with the answer; one that is too large for a frame is replaced by an error, which ends the request (false).
bool ServerConnection::appendAnswerLocked(util::ByteBufferWriter& out, wire::FrameType type, std::uint8_t flags, std::uint64_t id,
                                          const Response& response) {
    const std::size_t before = out.size();
    wire::appendResponse(out, type, flags, id, response);
    const std::size_t size = out.size() - before - wire::headerSize;
    if (size <= limits_.frameBytes) return true;
    out.truncate(before);
    static tracing::RateLimit limit{5};
    std::uint64_t held = 0;
    if (limit.admit(held)) {
        tracing::logCV(channel, 4, "%s: an answer of %zu bytes to %s is larger than a frame may be (%llu such lines held back)",
                       service_->path.c_str(), size, peer_.toString().c_str(), static_cast<unsigned long long>(held));
    }
    wire::appendResponse(
        out, wire::FrameType::error, 0, id,
        Response::createErrorResponse(500, service_->path + ": the answer of " + std::to_string(size) +
                                               " bytes is larger than a frame may be; ask for less with limit or fields"));
    return false;
}

void ServerConnection::eraseLocked(std::uint64_t id) {
    const auto over = requests_.take(id);
    --(over->oneShot ? oneShots_ : streams_);
    if (owed_ > 0 && !over->cancelled) --owed_;
}

void ServerConnection::handleDrainedLocked() {
    std::size_t written = 0;
    for (; written < waiting_.size() && !isSlowLocked(); ++written) {
        Open* const open = requests_.find(waiting_[written]);
        if (open == nullptr || !open->waiting) continue;
        open->waiting = false;
        outLocked().write(open->latest.bytes());
        open->latest = util::ByteBufferWriter{};
    }
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(written));
}

bool ServerConnection::handleInputEnded() {
    std::vector<std::pair<IResourceHandler*, void*>> completed;
    bool goesOn = false;
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        requests_.forEach([&](std::uint64_t id, Open& open) {
            if (open.cancelled) return;
            if (open.answered) {
                if (open.waiting) outLocked().write(open.latest.bytes());
                wire::appendBare(outLocked(), wire::FrameType::completed, id);
                open.cancelled = true;
                open.waiting = false;
                open.latest = util::ByteBufferWriter{};
                if (open.handle != nullptr) completed.emplace_back(open.handler, open.handle);
                return;
            }
            if (!open.oneShot) {
                open.oneShot = true;
                --streams_;
                ++oneShots_;
            }
            ++owed_;
        });
        goesOn = owed_ > 0 || queuedLocked() > 0;
    }
    counters_.cancelled += completed.size();
    for (const auto& [handler, handle] : completed) handler->cancelRequest(handle);
    if (!goesOn) return false;
    commit();
    patience_.emplace(loop(), [this] { close("its last answers took too long"); });
    patience_->arm(Clock::now() + limits_.requestDeadline);
    return true;
}

void ServerConnection::handleClosed(const char* /*why*/) {
    patience_.reset();
    --counters_.connectionsOpen;
    std::vector<std::pair<IResourceHandler*, void*>> open;
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        requests_.forEach([&](std::uint64_t, Open& request) {
            if (!request.cancelled && request.handle != nullptr) open.emplace_back(request.handler, request.handle);
            request.cancelled = true;
            request.latest = util::ByteBufferWriter{};
        });
    }
    counters_.cancelled += open.size();
    for (const auto& [handler, handle] : open) handler->cancelRequest(handle);
    service_->closed(*this);
}

}  // namespace kelo::net
