#include "runtime/service_watch.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "net/unix_socket.h"
#include "runtime/domain.h"
#include "tracing/channel.h"
#include "util/text.h"

// A service is alive as long as one connection to it is: from the provider's hello until the kernel reports the end of the
// connection. So appearing and disappearing alternate by construction, however fast providers are replaced, and a provider that
// was killed and restarted between two looks at the directory is still seen to disappear and to appear.
//
// The directory only hints when to try. A socket file that nobody listens at is tried again with growing pauses, because a
// provider may have created it a moment before it listens. A missing file is not tried at all, because its appearance is
// reported. A provider that sends its hello and hangs up at once is not tried any faster: only a connection that has brought an
// answer or lasted a while, or a change in the directory, justifies another try without a pause.
//
// A resolver may bring a reader: a worker that reads the connection from then on. If several do, the first one's is used, and
// when that resolver is closed, the next. Only the connection knows where it is read and whether it has arrived there; here it is
// only told where it should be read. Callbacks to trackers and resolvers are still made on the runtime's thread; the loss of a
// connection, which the reader notices, is posted there.
//
// Callbacks may add and remove trackers and resolvers. So every loop over them searches, from the beginning, for the next one
// that has not been told, until there is none.

namespace kelo::runtime {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::chrono::milliseconds shortestPause{10};
constexpr std::chrono::milliseconds longestPause{1000};

}  // namespace

void* ServiceProxy::request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler, RequestLimits limits) {
    if (const auto connection = this->connection()) return connection->request(request, std::move(handler), limits);
    const auto owned = std::move(handler);
    owned->onError(Response::createErrorResponse(503, servicePath_ + ": service not available, request not sent"));
    return UNDEFINED_REQUEST_HANDLE;
}

void ServiceProxy::cancel(void* handle) {
    if (handle == UNDEFINED_REQUEST_HANDLE) return;
    if (const auto connection = this->connection()) connection->cancel(handle);
}

void ServiceProxy::attach(std::shared_ptr<net::ClientConnection> connection) {
    const std::lock_guard lock{mutex_};
    connection_ = std::move(connection);
}

void ServiceProxy::detach() {
    std::shared_ptr<net::ClientConnection> last;  // declared first, so that it is released without the lock
    const std::lock_guard lock{mutex_};
    last.swap(connection_);
}

std::shared_ptr<net::ClientConnection> ServiceProxy::connection() const {
    const std::lock_guard lock{mutex_};
    return connection_;
}

ServiceWatch::ServiceWatch(Context& context, std::string servicePath)
    : context_{context},
      servicePath_{std::move(servicePath)},
      fileName_{socketName(context.directory, servicePath_)},
      proxy_{servicePath_},
      retry_{context.loop, [this] { tryToConnect(); }},
      backoff_{shortestPause} {}

ServiceWatch::~ServiceWatch() = default;

net::ClientConnection::Usage ServiceWatch::usage() const {
    return connection_ ? connection_->usage() : net::ClientConnection::Usage{};
}

void ServiceWatch::addTracker(std::uint64_t handle, IKeloRuntime::IKeloServiceTracker& tracker) {
    trackers_.push_back({handle, &tracker, false});
    if (alive_) {
        notifyAlive();
    } else {
        checkDirectory();
    }
}

bool ServiceWatch::removeTracker(std::uint64_t handle) {
    return std::erase_if(trackers_, [handle](const Tracker& entry) { return entry.handle == handle; }) > 0;
}

void ServiceWatch::addResolver(std::uint64_t handle, IKeloRuntime::IKeloServiceResolver& resolver, comm::ActiveObject* reader) {
    resolvers_.push_back({handle, &resolver, reader, false});
    if (!alive_) return;
    // The caller may be a tracker's callback. It must return, so that the handle can be kept, before the resolver is told.
    notifyLater();
}

bool ServiceWatch::removeResolver(std::uint64_t handle) {
    if (std::erase_if(resolvers_, [handle](const Resolver& entry) { return entry.handle == handle; }) == 0) return false;
    if (alive_) updateReader();
    return true;
}

void ServiceWatch::abandon(const char* why) {
    trackers_.clear();
    resolvers_.clear();
    retry_.disarm();
    alive_ = false;
    proxy_.detach();
    if (const auto connection = std::exchange(connection_, nullptr)) connection->end(why);
}

void ServiceWatch::checkDirectory() {
    if (connection_) mayHaveSuccessor_ = true;
    if (connection_ || isUnused()) return;
    backoff_ = shortestPause;
    tryToConnect();
}

void ServiceWatch::tryToConnect() {
    retry_.disarm();
    if (connection_ || isUnused() || !context_.domain) return;
    if (context_.policy.refresh()) context_.policyChanged();  // a process that only asks does not watch the files
    net::Descriptor socket = net::connectTo(context_.domain.get(), fileName_);
    if (!socket) {
        if (errno == ENOENT) return;
        if (errno != ECONNREFUSED && errno != EAGAIN) logCannotConnect(std::strerror(errno));
        retryLater();
        return;
    }
    mayHaveSuccessor_ = false;
    net::Peer peer;
    if (!net::readPeer(socket.get(), peer) || !isTrusted(peer)) {
        ++context_.counters.peersRefused;
        retryLater();
        return;
    }
    const std::weak_ptr<ServiceWatch> weak = weak_from_this();
    net::ClientConnection::Events events;
    events.ready = [weak, peer](net::ClientConnection& connection, const wire::Hello& hello) {
        if (const auto self = weak.lock()) self->ready(connection, peer, hello);
    };
    events.closed = [weak, &loop = context_.loop](net::ClientConnection& connection, const char*) {
        loop.post([weak, which = &connection]() noexcept {
            if (const auto self = weak.lock()) self->lost(which);
        });
    };
    connection_ = std::make_shared<net::ClientConnection>(std::move(socket), peer, context_.limits, context_.counters,
                                                          servicePath_, std::move(events));
    if (!connection_->start(context_.loop)) {
        logCannotConnect("no room in the event loop");
        connection_.reset();
        retryLater();
        return;
    }
    connection_->sayHello(context_.applicationName);
}

// Whether the peer is somebody who may publish the path.
bool ServiceWatch::isTrusted(const net::Peer& peer) const {
    const policy::Policy& policy = *context_.policy.current();
    const policy::Decision decision = policy.mayPublish(peer.who, servicePath_, peer.isOwnOrRoot());
    if (decision.allowed) return true;
    const std::string why = policy.isInForce ? "may not publish it: " + policy.reasonOf(decision) : "is neither ours nor root";
    if (policy.audits) {
        ++context_.counters.peersAudited;
        tracing::logCV(channel, 3, "%s: audit: uid %u (pid %d), which provides it, %s", servicePath_.c_str(), peer.who.uid,
                       peer.pid, why.c_str());
    } else {
        tracing::logCV(channel, 4, "%s is provided by uid %u (pid %d), which %s: not trusted", servicePath_.c_str(), peer.who.uid,
                       peer.pid, why.c_str());
    }
    return policy.audits;
}

void ServiceWatch::applyPolicy() {
    if (connection_ && !isTrusted(connection_->peer())) {
        ++context_.counters.peersRefused;
        connection_->end("its provider is not trusted any more");
    }
    checkDirectory();
}

void ServiceWatch::logCannotConnect(const char* why) const {
    tracing::logCV(channel, 4, "%s: cannot connect: %s; trying again", servicePath_.c_str(), why);
}

void ServiceWatch::retryLater() {
    retry_.arm(net::Clock::now() + backoff_);
    backoff_ = std::min(backoff_ * 2, longestPause);
}

void ServiceWatch::ready(net::ClientConnection& connection, const net::Peer& peer, const wire::Hello& hello) {
    if (connection_.get() != &connection) return;
    aliveSince_ = net::Clock::now();
    info_.servicePath = servicePath_;
    info_.applicationName = hello.application;
    info_.pid = peer.pid;
    info_.uid = peer.who.uid;
    info_.mimeTypes = util::entriesOf(hello.mimeTypes);
    ++info_.incarnation;
    alive_ = true;
    proxy_.attach(connection_);
    context_.noteChange();
    // The connection is handling a frame; it can only move to its reader after that.
    notifyLater();
}

void ServiceWatch::lost(const net::ClientConnection* connection) {
    if (connection_.get() != connection) return;
    const auto gone = std::exchange(connection_, nullptr);
    if (alive_) {
        alive_ = false;
        proxy_.detach();
        context_.noteChange();
        notifyGone();
        if (mayHaveSuccessor_ || gone->hasAnswered() || net::Clock::now() - aliveSince_ >= longestPause) return checkDirectory();
    }
    if (!connection_ && !retry_.isArmed()) retryLater();
}

void ServiceWatch::notifyLater() {
    context_.loop.post([weak = weak_from_this()]() noexcept {
        if (const auto self = weak.lock(); self && self->alive_) self->notifyAlive();
    });
}

void ServiceWatch::notifyAlive() {
    const auto self = shared_from_this();
    const auto isPending = [](const auto& entry) { return !entry.isNotified; };
    for (;;) {
        const auto entry = std::find_if(trackers_.begin(), trackers_.end(), isPending);
        if (entry == trackers_.end() || !alive_) break;
        entry->isNotified = true;
        entry->tracker->added(info_);
    }
    updateReader();
    for (;;) {
        const auto entry = std::find_if(resolvers_.begin(), resolvers_.end(), isPending);
        if (entry == resolvers_.end() || !alive_) break;
        entry->isNotified = true;
        entry->resolver->resolved(entry->handle, &proxy_);
    }
}

void ServiceWatch::notifyGone() {
    const auto self = shared_from_this();
    const auto isNotified = [](const auto& entry) { return entry.isNotified; };
    for (;;) {
        const auto entry = std::find_if(trackers_.begin(), trackers_.end(), isNotified);
        if (entry == trackers_.end()) break;
        entry->isNotified = false;
        entry->tracker->removed();
    }
    for (;;) {
        const auto entry = std::find_if(resolvers_.begin(), resolvers_.end(), isNotified);
        if (entry == resolvers_.end()) break;
        entry->isNotified = false;
        entry->resolver->gone();
    }
}

// Moves the connection to the first resolver's reader; if there is none, it is read here.
void ServiceWatch::updateReader() {
    if (!connection_) return;
    const auto entry = std::find_if(resolvers_.begin(), resolvers_.end(), [](const Resolver& r) { return r.reader != nullptr; });
    connection_->moveTo(entry == resolvers_.end() ? context_.loop : entry->reader->loop());
}

}  // namespace kelo::runtime
