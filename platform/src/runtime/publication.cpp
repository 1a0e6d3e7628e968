#include "runtime/publication.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "net/unix_socket.h"
#include "runtime/domain.h"
#include "tracing/channel.h"
#include "util/text.h"

// Publishing takes three steps: lock, listen, rename. The lock is a file next to the socket that is never removed. It is held
// with flock as long as the path is ours. The kernel releases it when we die, however that happens. So a path has at most one
// owner, and is never without one for long. The socket first listens under a temporary name and is then renamed over whatever has
// the final name. So a tracker that sees the name can connect at once, and a dead owner's socket is replaced without a moment in
// which the name is missing. Binding in place would lose that race to nearly every tracker.
//
// If another process owns the path, we try again every few milliseconds; the lock file says who owns it.
//
// If the directory is emptied, or removed and created again, the name no longer leads to our socket. The runtime then calls us,
// and we publish again, including the lock, because the old lock may have lost its name, too. There is a pause first: otherwise,
// a process that is removing the directory would never find it empty.
//
// If a client connects when all connections are taken, it displaces one that has not sent its hello. If all have, a few
// connections in reserve let the process be asked about itself. Other requests on them are refused until another connection ends;
// if the reserve is full, the oldest in it makes room for the next.
//
// Who may connect is decided when a connection is accepted: our own user and root, and with a policy everybody whom one of its
// rules for this service is about, also one that denies something: such a client is told so, request by request. When the policy
// changes, all of this is decided again, for the publication itself, too.
//
// In a directory that a group may write to, somebody who must not publish a path may have made its lock first. We cannot open
// such a lock; it is removed, if its owner may not publish the path and the directory lets us.
//
// A process without a free descriptor for a client stops listening; otherwise it would be woken for ever by a queue from which it
// cannot take anything. It starts again when one of its connections has been closed, or after a while.

namespace kelo::runtime {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::chrono::milliseconds claimPause{20};
constexpr std::chrono::milliseconds failurePause{200};
constexpr std::chrono::milliseconds acceptPause{100};

std::string errorText() {
    return std::strerror(errno);  // called only on the runtime's thread
}

std::string readHolder(int lock) {
    char text[128];
    const auto size = ::pread(lock, text, sizeof text, 0);
    if (size <= 0) return "another process";
    std::string holder(text, static_cast<std::size_t>(size));
    holder.resize(std::min(holder.find('\n'), holder.size()));
    return holder;
}

}  // namespace

class Publication::Listener final : public net::Pollable {
public:
    Listener(net::Descriptor socket, Publication& owner) : socket_{std::move(socket)}, owner_{owner} {}

    int fd() const noexcept { return socket_.get(); }
    void onReady(std::uint32_t /*events*/) override { owner_.accept(); }

    bool listening = false;

private:
    const net::Descriptor socket_;
    Publication& owner_;
};

Publication::Publication(Context& context, std::string servicePath, SimpleComposedKeloService& handlers,
                         IKeloRuntime::IKeloServiceTracker* tracker, std::function<void(const Request&, IResponder&)> platform)
    : context_{context},
      fileName_{socketName(context.directory, servicePath)},
      tracker_{tracker},
      service_{std::make_shared<net::ServerConnection::Service>()},
      retry_{context.loop, [this] { begin(); }},
      acceptAgain_{context.loop, [this] { accept(); }} {
    service_->path = std::move(servicePath);
    service_->application = context.applicationName;
    service_->mimeTypes = context.mimeTypes;
    service_->handlers = &handlers;
    service_->shares = context.shares;
    service_->platform = std::move(platform);
    service_->closed = [this](net::ServerConnection& connection) {
        std::erase(connections_, &connection);
        admitReserved();
        if (listener_ && !listener_->listening) acceptAgain_.arm(net::Clock::now());
    };
    info_.servicePath = service_->path;
    info_.applicationName = context.applicationName;
    info_.pid = ::getpid();
    info_.uid = ::geteuid();
    info_.mimeTypes = util::entriesOf(context.mimeTypes);
}

Publication::~Publication() = default;

std::vector<net::ServerConnection::Usage> Publication::usage() const {
    std::vector<net::ServerConnection::Usage> all;
    all.reserve(connections_.size());
    for (const auto* connection : connections_) all.push_back(connection->usage());
    return all;
}

void Publication::begin() {
    if (listener_ || !context_.domain) return;  // the runtime calls us again when the directory is there
    if (!mayPublish()) return;                  // or when the policy has changed
    if (!claim()) {
        retryLater(claimPause);
        return;
    }
    if (!bindAndRename()) {
        retryLater(failurePause);
        return;
    }
    lastLogged_.clear();
    ++info_.incarnation;
    context_.noteChange();
    if (tracker_ != nullptr) tracker_->added(info_);
}

bool Publication::mayPublish() {
    const policy::Policy& policy = *context_.policy.current();
    if (!policy.isInForce) return true;
    const policy::Decision decision = policy.mayPublish(policy::ownIdentity(), service_->path, true);
    if (decision.allowed) return true;
    logOnce((policy.audits ? "audit: " : "") + std::string{"may not be published by our user: "} + policy.reasonOf(decision));
    return policy.audits;
}

bool Publication::mayConnect(const net::Peer& peer) {
    const policy::Policy& policy = *context_.policy.current();
    if (peer.isOwnOrRoot() || policy.isAbout(peer.who, service_->path)) return true;
    if (!policy.audits) return false;
    ++context_.counters.peersAudited;
    tracing::logCV(channel, 3, "%s: audit: no rule is about uid %u, which connects as %s", service_->path.c_str(), peer.who.uid,
                   peer.toString().c_str());
    return true;
}

void Publication::applyPolicy() {
    if (listener_ && !mayPublish()) {
        end();
        if (tracker_ != nullptr) tracker_->removed();
        context_.noteChange();
        return;
    }
    if (!listener_) return begin();
    if (isInPlace()) {
        const mode_t mode = socketMode(context_.domain.get(), *context_.policy.current());
        if (::fchmodat(context_.domain.get(), fileName_.c_str(), mode, 0) != 0)
            logOnce("cannot change its socket: " + errorText());
    }
    for (net::ServerConnection* each : std::vector{connections_}) {
        const auto connection = std::static_pointer_cast<net::ServerConnection>(each->shared_from_this());
        setPolicy(*connection);
        if (mayConnect(connection->peer())) continue;
        ++context_.counters.peersRefused;
        connection->flush();  // what its streams ended with
        connection->close("the policy does not admit it any more");
    }
}

// Takes the lock if it is free, and writes our name into it.
bool Publication::claim() {
    const int directory = context_.domain.get();
    const std::string file = fileName_ + ".lock";
    struct stat named {};
    if (lock_) {
        struct stat held {};
        if (::fstat(lock_.get(), &held) == 0 && ::fstatat(directory, file.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            held.st_ino == named.st_ino)
            return true;
        lock_.reset();
    }
    net::Descriptor lock{::openat(directory, file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!lock && removeForeignLock()) {
        lock = net::Descriptor{::openat(directory, file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)};
    }
    if (!lock) {
        logOnce("cannot open the lock " + context_.directory + "/" + file + ": " + errorText());
        return false;
    }
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        logOnce("is held by " + readHolder(lock.get()) + "; waiting for it to end");
        return false;
    }
    struct stat held {};
    if (::fstat(lock.get(), &held) != 0 || ::fstatat(directory, file.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        held.st_ino != named.st_ino)
        return false;
    // For people and for waiting processes; if the disk is full, that does not matter.
    const std::string holder = "pid " + std::to_string(::getpid()) + " (" + context_.applicationName + ")\n";
    if (::ftruncate(lock.get(), 0) == 0) {
        [[maybe_unused]] const auto written = ::pwrite(lock.get(), holder.data(), holder.size(), 0);
    }
    lock_ = std::move(lock);
    return true;
}

// Removes a lock that we may not open, if it belongs to somebody who may not publish the path.
bool Publication::removeForeignLock() {
    const int error = errno;
    const std::string file = fileName_ + ".lock";
    struct stat status {};
    const bool isForeign =
        error == EACCES && context_.policy.current()->isInForce &&
        ::fstatat(context_.domain.get(), file.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        !context_.policy.current()->mayPublish(policy::identityOf(status.st_uid), service_->path, false).allowed;
    const bool isRemoved = isForeign && ::unlinkat(context_.domain.get(), file.c_str(), 0) == 0;
    errno = error;
    return isRemoved;
}

bool Publication::bindAndRename() {
    static std::atomic<unsigned> number{0};
    const int directory = context_.domain.get();
    // Does not contain the service's name, which may be as long as an address allows.
    const std::string hidden = "." + std::to_string(::getpid()) + "." + std::to_string(++number) + ".new";
    ::unlinkat(directory, hidden.c_str(), 0);
    net::Descriptor socket = net::listenAt(directory, hidden);
    if (!socket) {
        logOnce("cannot listen at " + context_.directory + "/" + hidden + ": " + errorText());
        ::unlinkat(directory, hidden.c_str(), 0);
        return false;
    }
    struct stat status {};
    if (::fchmodat(directory, hidden.c_str(), socketMode(directory, *context_.policy.current()), 0) != 0 ||
        ::fstatat(directory, hidden.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        ::renameat(directory, hidden.c_str(), directory, fileName_.c_str()) != 0) {
        logOnce("cannot show its socket as " + context_.directory + "/" + fileName_ + ": " + errorText());
        ::unlinkat(directory, hidden.c_str(), 0);
        return false;
    }
    socketInode_ = status.st_ino;
    auto listener = std::make_shared<Listener>(std::move(socket), *this);
    if (context_.loop.add(listener->fd(), EPOLLIN, listener) == 0) {
        logOnce("has no room in the event loop: " + errorText());
        ::unlinkat(directory, fileName_.c_str(), 0);
        return false;
    }
    listener->listening = true;
    listener_ = std::move(listener);
    return true;
}

bool Publication::isInPlace() const {
    struct stat status {};
    return context_.domain && ::fstatat(context_.domain.get(), fileName_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           status.st_ino == socketInode_;
}

void Publication::checkDirectory() {
    if (!listener_ || isInPlace()) return;
    tracing::logCV(channel, 3, "%s: its socket was taken from the runtime directory; publishing anew", service_->path.c_str());
    withdraw();
    context_.noteChange();
    if (tracker_ != nullptr) tracker_->removed();
    retryLater(claimPause);
}

void Publication::withdraw() {
    if (!listener_) return;
    if (listener_->listening) context_.loop.remove(listener_->fd());
    listener_.reset();
    acceptAgain_.disarm();
}

void Publication::end() {
    retry_.disarm();
    if (listener_ && lock_ && isInPlace()) ::unlinkat(context_.domain.get(), fileName_.c_str(), 0);
    withdraw();
    lock_.reset();
    while (!connections_.empty()) connections_.back()->close("service withdrawn");
}

void Publication::accept() {
    if (!listener_) return;
    const auto listener = listener_;
    // Limited, so that existing clients are served before many new ones are accepted.
    for (std::uint32_t count = 0; count < context_.limits.framesPerWakeUp; ++count) {
        net::Descriptor socket{::accept4(listener->fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
        if (!socket) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN) break;
            ++context_.counters.acceptPauses;
            logOnce("cannot accept a connection: " + errorText() + "; not listening until that has passed");
            if (listener->listening) context_.loop.remove(listener->fd());
            listener->listening = false;
            acceptAgain_.arm(net::Clock::now() + acceptPause);
            return;
        }
        net::Peer peer;
        const bool known = net::readPeer(socket.get(), peer);
        const bool isAdmitted = known && mayConnect(peer);
        if (!isAdmitted || !hasShare(peer) || !makeRoom()) {
            ++context_.counters.peersRefused;
            const char* const stranger =
                context_.policy.current()->isInForce ? "no rule of the policy is about this user" : "neither our uid nor root";
            tracing::logCV(channel, 3, "%s: connection of %s (uid %u) refused: %s", service_->path.c_str(),
                           peer.toString().c_str(), peer.who.uid,
                           isAdmitted ? "as many connections as the limit allows" : stranger);
            continue;
        }
        peer.program = policy::programOf(peer.pid);
        serve(std::move(socket), std::move(peer));
    }
    if (listener->listening) return;
    listener->listening = context_.loop.add(listener->fd(), EPOLLIN, listener) != 0;
    if (!listener->listening) acceptAgain_.arm(net::Clock::now() + acceptPause);
}

// Whether the peer's user may have one more connection. Its own silent ones make room.
bool Publication::hasShare(const net::Peer& peer) {
    if (!context_.policy.current()->isInForce || context_.turns->admitsConnection(*context_.turns->user(peer.who.uid)))
        return true;
    const auto silent = std::find_if(connections_.begin(), connections_.end(), [&](const net::ServerConnection* connection) {
        return connection->peer().who.uid == peer.who.uid && !connection->hasGreeted();
    });
    if (silent == connections_.end()) return false;
    ++context_.counters.peersRefused;
    (*silent)->close("it has not said hello, and others of its user wait");
    return true;
}

void Publication::setPolicy(net::ServerConnection& connection) {
    const auto& policy = context_.policy.current();
    if (policy->isInForce) {
        connection.setPolicy(policy, context_.turns->user(connection.peer().who.uid), &*context_.turns);
    } else {
        connection.setPolicy(policy, nullptr, nullptr);
    }
}

// Makes room for one more connection. False if everything is taken by other services of the process.
bool Publication::makeRoom() {
    const auto& limits = context_.limits;
    if (context_.counters.connectionsOpen < limits.connections) return true;
    const auto isSilent = [](const net::ServerConnection& connection) { return !connection.hasGreeted(); };
    const auto isReserved = [](const net::ServerConnection& connection) { return connection.isReserved(); };
    return closeOldest(isSilent, "it has not said hello, and others wait") ||
           context_.counters.connectionsOpen < limits.connections + limits.reservedConnections ||
           closeOldest(isReserved, "as many connections as the limit allows");
}

bool Publication::closeOldest(bool (*isMeant)(const net::ServerConnection&), const char* why) {
    const auto oldest = std::find_if(connections_.begin(), connections_.end(),
                                     [isMeant](const net::ServerConnection* connection) { return isMeant(*connection); });
    if (oldest == connections_.end()) return false;
    ++context_.counters.peersRefused;
    tracing::logCV(channel, 3, "%s: connection of %s ended: %s", service_->path.c_str(), (*oldest)->peer().toString().c_str(),
                   why);
    (*oldest)->close(why);
    return true;
}

// After a connection has ended, one in reserve takes its place.
void Publication::admitReserved() {
    const auto isReserved = [](const net::ServerConnection* connection) { return connection->isReserved(); };
    const auto first = std::find_if(connections_.begin(), connections_.end(), isReserved);
    const auto reserved = static_cast<std::uint64_t>(std::count_if(first, connections_.end(), isReserved));
    if (reserved > 0 && context_.counters.connectionsOpen - reserved < context_.limits.connections) (*first)->setReserved(false);
}

void Publication::serve(net::Descriptor socket, net::Peer peer) {
    std::shared_ptr<net::ServerConnection> connection;
    try {
        connections_.reserve(connections_.size() + 1);
        connection = std::make_shared<net::ServerConnection>(std::move(socket), std::move(peer), context_.limits,
                                                             context_.counters, service_);
        connections_.push_back(connection.get());
        connection->setReserved(context_.counters.connectionsOpen > context_.limits.connections);
        setPolicy(*connection);
        if (!connection->start(context_.loop)) {
            connection->close("no room in the event loop");
            return;
        }
        connection->expectHello();
    } catch (const std::exception& error) {
        ++context_.counters.peersRefused;
        logOnce(std::string{"cannot serve a connection: "} + error.what());
        if (connection) connection->close("given up");
    }
}

// Logs what keeps the service from being published or reached, but not the same reason twice in a row.
void Publication::logOnce(const std::string& text) {
    if (text == lastLogged_) return;
    lastLogged_ = text;
    tracing::logCV(channel, 4, "%s: %s", service_->path.c_str(), text.c_str());
}

}  // namespace kelo::runtime
