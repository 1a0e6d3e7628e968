#include "net/server_connection.h"

#include <exception>
#include <utility>

#include "tracing/channel.h"
#include "util/block_pool.h"
#include "util/text.h"

// Each request that a client sends is open from its frame until its responder ends it or is destroyed. The table of open requests
// alone decides whether an answer may still be written. A responder is only the connection and an id, so it can be owned, moved
// and destroyed anywhere; a responder of a request that is over is ignored.
//
// A cancelled request stays in the table, and counts against the client's limits, until its responder is destroyed: a client
// gains nothing by cancelling faster than the bridge can give up the work.
//
// A stream's values are states, and only the newest matters. While a peer is slow, a new value replaces the one that waits for
// it; equal values are kept once. So a peer that reads again gets the current states, in the order in which its streams began to
// wait. The end of a stream waits with its value. What is kept counts against what the client may leave unread, like what is
// queued.
//
// A peer may itself have many clients. So a value or large answer for which there is no room costs only its own request, which
// ends with an error; a part of the limit stays free for small answers. The connection is cut if even these pile up.
//
// A client that ends its side, because it has asked everything, gets one answer to each request that has had none: streams become
// one-shot requests, or are completed if they have had a value. The connection ends with the last answer, or after the deadline
// for requests, because a client that waits cannot be distinguished from one that has forgotten the connection.
//
// What a client may do is decided by a table that is made for the client when it connects, and made again when the policy
// changes. Without a policy there is no table.
//
// The thread that reads calls `cancelRequest`, never with the lock held. It has also called `actionRequest`, so the handle is
// known by then. Only this thread needs handles, so the last one is entered into the table when the thread next takes the lock.

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
            connection_->shutDown();  // no memory for the last answer: the end of the connection tells the client as much
        }
    }

    bool next(const Response& response) override {
        const auto taken = connection_->next(id_, response);
        hadLast_ = hadLast_ || taken == ServerConnection::Taken::asTheLast;
        return taken != ServerConnection::Taken::andMoreWanted;
    }
    void error(const Response& response) override { connection_->terminate(id_, wire::FrameType::error, &response); }
    void completed() override { connection_->terminate(id_, wire::FrameType::completed, nullptr); }
    Account* account() const noexcept override { return &connection_->account(); }

private:
    const std::shared_ptr<ServerConnection> connection_;
    const std::uint64_t id_;
    bool hadLast_ = false;  // the connection has then forgotten the request
};

}  // namespace

ServerConnection::ServerConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                                   std::shared_ptr<const Service> service)
    : FrameStream{std::move(socket), std::move(peer), limits, counters, service->shares},
      service_{std::move(service)},
      account_{std::make_shared<Account>(peer_.pid, peer_.who.uid)} {
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

ServerConnection::Usage ServerConnection::usage() const {
    const std::lock_guard lock{mutex_};
    return {peer_, oneShots_, streams_, queuedLocked(), keptBytes_, account_->heldRequests, account_->heldBytes};
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
    {
        const std::lock_guard lock{mutex_};
        nameLocked(hello.application);
        peerClientId_ = peer_.application.empty() ? "unnamed" : peer_.application;
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
    const bool isNameTooLong = request_.clientId().size() > limits_.nameBytes;
    const char* refusal = isNameTooLong ? "the client id is longer than it may be" : nullptr;
    std::uint16_t status = isNameTooLong ? 400 : 503;
    if (access_ != nullptr && refusal == nullptr && isForbidden(request_.command(), request_.path())) {
        refusal = forbidden_.c_str();
        status = 403;
    }
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        if (refusal == nullptr) refusal = refusalLocked();
        if (refusal != nullptr) {
            if (requests_.find(id) != nullptr) return "a request id used twice";
            if (status != 403) ++counters_.requestsRefused;
            wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                                 Response::createErrorResponse(status, service_->path + ": " + refusal));
        } else {
            Open* const open = requests_.put(id, std::make_unique<Open>());
            if (open == nullptr) return "a request id used twice";
            open->oneShot = request_.isOneShot();
            if (!open->oneShot) open->asked = std::make_unique<const Asked>(Asked{request_.command(), request_.path()});
            if (open->oneShot) {
                ++oneShots_;
            } else {
                addStreamLocked();
            }
            shares_->openRequests.change(requests_.size() - 1, requests_.size(), requestsOfUser());
            if (turns_ != nullptr) {
                open->inHand = true;
                ++user_->inHand;
            }
            ++counters_.requestsAccepted;
        }
    }
    if (refusal != nullptr) {
        commit();
    } else {
        dispatch(id);
    }
    if (body.size() > limits_.conflationBytes) {
        request_ = Request{};  // otherwise its strings would keep the memory of this large one
        requestFields_.forget();
    }
    return nullptr;
}

// Why the request that has been read is refused; null if it is not.
const char* ServerConnection::refusalLocked() const {
    if (isReserved_ && !request_.path().starts_with(platformRoot)) return "too many clients are connected, request not sent";
    const bool isFull = request_.isOneShot() ? oneShots_ >= limits_.oneShotRequests
                                             : streams_ >= limits_.openStreams || !shares_->streams.admits(1, streamsOfUser());
    return isFull || !shares_->openRequests.admits(requests_.size(), 1, requestsOfUser())
               ? "too many requests in flight, request not sent"
               : nullptr;
}

// Whether the policy keeps the client from this. If so, that is counted and logged, and the reason is in `forbidden_`.
bool ServerConnection::isForbidden(const std::string& command, const std::string& path) {
    const policy::Decision decision = access_->decide(command, path);
    if (decision.allowed) return false;
    const bool audits = access_->policy().audits;
    forbidden_ = "'" + util::printable(command) + "' '" + util::printable(path) + "' is forbidden to uid " +
                 std::to_string(peer_.who.uid) + ": " + access_->policy().reasonOf(decision);
    ++(audits ? counters_.requestsAudited : counters_.requestsForbidden);
    if (audits) {
        tracing::logCV(channel, 3, "%s: audit: %s would get: %s", service_->path.c_str(), peer_.toString().c_str(),
                       forbidden_.c_str());
    } else {
        tracing::logCV(channel, 3, "%s: %s got: %s", service_->path.c_str(), peer_.toString().c_str(), forbidden_.c_str());
    }
    return !audits;
}

void ServerConnection::chargeTo(const std::shared_ptr<User>& user, Turns* turns) {
    const std::lock_guard lock{mutex_};
    if (user_ != user) {
        requests_.forEach([this](std::uint64_t, Open& open) {
            if (std::exchange(open.inHand, false)) putDownLocked();
        });
        if (user_) {
            shares_->openRequests.charge(requests_.size(), 0, user_->requests);
            shares_->streams.charge(streams_, 0, user_->streams);
            turns_->removeConnection(*user_);
        }
        if (user) {
            shares_->openRequests.charge(0, requests_.size(), user->requests);
            shares_->streams.charge(0, streams_, user->streams);
            turns->addConnection(*user);
        }
    }
    setUserLocked(user, turns);
}

void ServerConnection::setPolicy(std::shared_ptr<const policy::Policy> policy, const std::shared_ptr<User>& user, Turns* turns) {
    chargeTo(user, turns);
    const bool isOwnOrRoot = peer_.isOwnOrRoot();
    const bool isNeeded = policy->isInForce || !isOwnOrRoot;
    access_ =
        isNeeded ? std::make_unique<policy::AccessTable>(std::move(policy), peer_.who, service_->path, isOwnOrRoot) : nullptr;
    if (access_ != nullptr) endForbiddenStreams();
}

void ServerConnection::endForbiddenStreams() {
    std::vector<std::pair<std::uint64_t, std::string>> ended;
    std::vector<std::pair<IResourceHandler*, void*>> cancelled;
    {
        const std::lock_guard lock{mutex_};
        noteDispatchedLocked();
        if (isClosedLocked()) return;
        requests_.forEach([&](std::uint64_t id, const Open& open) {
            if (open.asked == nullptr || open.cancelled || !isForbidden(open.asked->command, open.asked->path)) return;
            ended.emplace_back(id, forbidden_);
            if (open.handle != nullptr) cancelled.emplace_back(open.handler, open.handle);
        });
        for (const auto& [id, reason] : ended) {
            const std::size_t begin = outLocked().size();
            wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                                 Response::createErrorResponse(403, service_->path + ": " + reason));
            followKeptLocked(id, begin);
            eraseLocked(id);
        }
    }
    if (ended.empty()) return;
    commit();
    for (const auto& [handler, handle] : cancelled) handler->cancelRequest(handle);
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
                       util::printable(request_.command()).c_str(), util::printable(request_.path()).c_str(), error.what());
    } catch (...) {
        tracing::logCV(channel, 4, "%s: request '%s' '%s' ended with an unknown exception", service_->path.c_str(),
                       util::printable(request_.command()).c_str(), util::printable(request_.path()).c_str());
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
        dropKeptLocked(id);
        handler = open->handler;
        handle = open->handle;
    }
    ++counters_.cancelled;
    if (handle != nullptr) handler->cancelRequest(handle);
}

ServerConnection::Taken ServerConnection::next(std::uint64_t id, const Response& response) {
    bool last = false;
    bool isMuch = false;
    {
        const std::lock_guard lock{mutex_};
        Open* const open = answerableLocked(id);
        if (open == nullptr) return Taken::unwanted;
        last = open->oneShot;
        open->answered = true;
        if (std::exchange(open->inHand, false)) putDownLocked();
        if (!last && isSlowLocked()) {
            last = !keepLocked(id, response);
        } else {
            dropKeptLocked(id);  // it is older than this one
            last =
                !appendAnswerLocked(outLocked(), wire::FrameType::next, last ? wire::flagEnd : std::uint8_t{0}, id, response) ||
                last;
        }
        if (last) eraseLocked(id);
        isMuch = isMuchLocked();
    }
    commit(isMuch);
    return last ? Taken::asTheLast : Taken::andMoreWanted;
}

// Keeps a stream's value until there is room to write it. If there is no room to keep it either, ends the stream and returns
// false.
bool ServerConnection::keepLocked(std::uint64_t id, const Response& response) {
    util::ByteBufferWriter frame;  // not the queue's buffer, which would keep its size
    if (!appendAnswerLocked(frame, wire::FrameType::next, 0, id, response)) {
        outLocked().write(frame.bytes());  // an error instead of the value
        dropKeptLocked(id);
        return false;
    }
    if (kept_.put(id, frame.bytes(), response.payload().bytes().size())) ++counters_.valuesConflated;
    keptBytes_ = kept_.bytes();
    if (admitsUnreadLocked()) return true;
    dropKeptLocked(id);
    refuseLocked(id, outLocked().size());
    return false;
}

// Replaces the answer that was appended at `begin` by an error.
void ServerConnection::refuseLocked(std::uint64_t id, std::size_t begin) {
    ++counters_.answersRefused;
    tracing::logCV(channel, 3, "%s: an answer to %s is refused: it left %zu bytes unread", service_->path.c_str(),
                   peer_.toString().c_str(), unreadLocked());
    outLocked().truncate(begin);
    wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                         Response::createErrorResponse(503, service_->path + ": too much is left unread, outcome unknown"));
}

void ServerConnection::terminate(std::uint64_t id, wire::FrameType type, const Response* response) {
    bool isMuch = false;
    {
        const std::lock_guard lock{mutex_};
        if (answerableLocked(id) == nullptr) return;
        const std::size_t begin = outLocked().size();
        if (response != nullptr) {
            appendAnswerLocked(outLocked(), type, 0, id, *response);
        } else {
            wire::appendBare(outLocked(), type, id);
        }
        followKeptLocked(id, begin);
        eraseLocked(id);
        isMuch = isMuchLocked();
    }
    commit(isMuch);
}

void ServerConnection::abandon(std::uint64_t id) {
    {
        const std::lock_guard lock{mutex_};
        const Open* const open = requests_.find(id);
        if (open == nullptr) return;
        const bool silent = open->cancelled || isClosedLocked();
        if (!silent) {
            ++counters_.answeredByNobody;
            const std::size_t begin = outLocked().size();
            wire::appendResponse(outLocked(), wire::FrameType::error, 0, id,
                                 Response::createErrorResponse(503, service_->path + ": no answer, outcome unknown"));
            followKeptLocked(id, begin);
        }
        eraseLocked(id);
        if (silent) return;
    }
    commit();
}

// The request; null if answers to it are no longer wanted.
ServerConnection::Open* ServerConnection::answerableLocked(std::uint64_t id) {
    Open* const open = requests_.find(id);
    return open == nullptr || open->cancelled || isClosedLocked() ? nullptr : open;
}

// Appends a frame with the answer. An answer that is too large for a frame, or a large last answer for which there is no room, is
// replaced by an error, which ends the request (false).
bool ServerConnection::appendAnswerLocked(util::ByteBufferWriter& out, wire::FrameType type, std::uint8_t flags, std::uint64_t id,
                                          const Response& response) {
    const std::size_t before = out.size();
    wire::appendResponse(out, type, flags, id, response);
    const std::size_t size = out.size() - before - wire::headerSize;
    if (size <= limits_.conflationBytes) return true;
    if (size <= limits_.frameBytes) {
        if (flags != wire::flagEnd || admitsUnreadLocked()) return true;
        refuseLocked(id, before);
        return false;
    }
    out.truncate(before);
    tracing::logCV(channel, 4, "%s: an answer of %zu bytes to %s is larger than a frame may be", service_->path.c_str(), size,
                   peer_.toString().c_str());
    wire::appendResponse(
        out, wire::FrameType::error, 0, id,
        Response::createErrorResponse(500, service_->path + ": the answer of " + std::to_string(size) +
                                               " bytes is larger than a frame may be; ask for less with limit or fields"));
    return false;
}

void ServerConnection::eraseLocked(std::uint64_t id) {
    const auto over = requests_.take(id);
    shares_->openRequests.change(requests_.size() + 1, requests_.size(), requestsOfUser());
    if (over->inHand) putDownLocked();
    if (over->oneShot) {
        --oneShots_;
    } else {
        removeStreamLocked();
    }
    if (owed_ > 0 && !over->cancelled) --owed_;
}

void ServerConnection::addStreamLocked() noexcept {
    ++streams_;
    if (user_) shares_->streams.charge(0, 1, user_->streams);
}

void ServerConnection::removeStreamLocked() noexcept {
    --streams_;
    if (user_) shares_->streams.charge(1, 0, user_->streams);
}

void ServerConnection::dropKeptLocked(std::uint64_t id) {
    if (kept_.empty()) return;
    kept_.drop(id);
    keptBytes_ = kept_.bytes();
}

// The frame that was appended at `begin` ends its request. If a value of the request waits, the frame must follow that value.
void ServerConnection::followKeptLocked(std::uint64_t id, std::size_t begin) {
    if (kept_.empty()) return;
    auto& out = outLocked();
    try {
        if (kept_.end(id, out.bytes().subspan(begin))) out.truncate(begin);
        keptBytes_ = kept_.bytes();
    } catch (const std::exception&) {
        dropKeptLocked(id);  // without memory for both, the end takes precedence
    }
}

void ServerConnection::handleDrainedLocked() {
    if (kept_.empty()) return;
    while (!kept_.empty() && !isSlowLocked()) kept_.writeOldest(outLocked());
    keptBytes_ = kept_.bytes();
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
                const std::size_t begin = outLocked().size();
                wire::appendBare(outLocked(), wire::FrameType::completed, id);
                followKeptLocked(id, begin);
                open.cancelled = true;
                if (open.handle != nullptr) completed.emplace_back(open.handler, open.handle);
                return;
            }
            if (!open.oneShot) {
                open.oneShot = true;
                removeStreamLocked();
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
        });
        kept_.clear();
        keptBytes_ = 0;
    }
    counters_.cancelled += open.size();
    for (const auto& [handler, handle] : open) handler->cancelRequest(handle);
    if (user_) turns_->removeConnection(*user_);
    turns_ = nullptr;
    service_->closed(*this);
}

}  // namespace kelo::net
