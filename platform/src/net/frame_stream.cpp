#include "net/frame_stream.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tracing/channel.h"

// Writing. A thread that has something to send appends whole frames to the queue under the lock and commits; the queue sends
// them. What the kernel does not take stays there, and the loop that reads is asked to report when there is room.
//
// A peer that does not read meets three limits. Above `conflationBytes`, streams keep only their newest value and requests wait
// (the derived classes do that). Above the soft limit, its own requests are no longer read. Above the hard limit, or above its
// share of what all clients may leave unread, it is disconnected. A provider's answers are always read: if both ends waited for
// the other to read first, neither would ever read.
//
// Reading. One large receive goes into the loop's own buffer. Whole frames are handled where they are, and only the part of a
// frame at the end is copied, to wait for the rest. A frame's length is believed only up to the limit, and memory for it grows
// with the bytes that arrive, never ahead of them. After `framesPerWakeUp` frames, other connections have their turn.
//
// The end. Only what the kernel reports counts: a hang-up, a reset and a broken pipe mean the same. Only the loop's thread acts
// on it, after everything received before it has been handled. Another thread that must end the connection either shuts the
// socket down and lets the loop find out, or states that the connection should end. A peer that ends only its own side, like a
// client that has asked everything, still gets what the derived class owes it; a hang-up is noticed meanwhile, because the kernel
// always reports it.
//
// Memory. If there is none for what one connection needs, that connection ends, and its requests with it. What ending it needs
// (the messages to those whose requests end) must be available. Without it the process ends, because nobody could be told.

namespace kelo::net {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

}  // namespace

std::string Peer::toString() const {
    std::string text = "pid " + std::to_string(pid);
    if (!application.empty()) text += " (" + application + ")";
    return text;
}

bool Peer::isOwnOrRoot() const noexcept {
    return who.uid == ::geteuid() || who.uid == 0;
}

bool readPeer(int fd, Peer& peer) noexcept {
    return policy::readIdentity(fd, peer.pid, peer.who);
}

FrameStream::FrameStream(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                         std::shared_ptr<Shares> shares)
    : limits_{limits},
      counters_{counters},
      peer_{std::move(peer)},
      shares_{std::move(shares)},
      socket_{std::move(socket)},
      place_{socket_.get()} {}

FrameStream::~FrameStream() = default;

bool FrameStream::start(Loop& loop) {
    const std::lock_guard lock{mutex_};
    return place_.enterLocked(loop, shared_from_this(), EPOLLIN);
}

void FrameStream::moveTo(Loop& loop) {
    const std::lock_guard lock{mutex_};
    if (closed_) return;
    place_.wantLocked(loop);
    if (place_.isWhereWantedLocked()) {
        changed_.notify_all();  // a thread may wait for a move that is not wanted any more
        return;
    }
    if (place_.isHereLocked() && place_.isReadLocked() && !isHandling_) {
        leaveLocked();
    } else {
        place_.loopLocked()->post([self = shared_from_this()]() noexcept { self->follow(); });
    }
}

void FrameStream::end(const char* why) {
    {
        const std::lock_guard lock{mutex_};
        if (closed_) return;
        endWanted_ = why;
        if (!place_.isHereLocked()) {
            place_.loopLocked()->post([self = shared_from_this()]() noexcept { self->follow(); });
            return;
        }
    }
    close(why);
}

void FrameStream::awaitSettled() {
    std::unique_lock lock{mutex_};
    changed_.wait(lock, [this] { return over_ || (endWanted_ == nullptr && place_.isWhereWantedLocked()); });
}

bool FrameStream::isOver() const {
    const std::lock_guard lock{mutex_};
    return over_;
}

// Does what is wanted, if it is this thread's task. While the connection is moving, it is the task of the thread where it
// arrives.
void FrameStream::follow() noexcept {
    const char* why = nullptr;
    {
        const std::lock_guard lock{mutex_};
        if (closed_ || !place_.isHereLocked()) return;
        why = endWanted_;
        if (why == nullptr) {
            if (place_.isReadLocked() && !place_.isWhereWantedLocked()) leaveLocked();
            return;
        }
    }
    close(why);
}

void FrameStream::leaveLocked() {
    handleLeavingLocked();
    place_.leaveLocked([self = shared_from_this()]() noexcept { self->arrive(); });
    changed_.notify_all();
}

void FrameStream::arrive() noexcept {
    const char* wrong = nullptr;
    {
        const std::lock_guard lock{mutex_};
        if (closed_) return;
        wrong = endWanted_;
        if (wrong == nullptr && !place_.isWhereWantedLocked()) return leaveLocked();
        if (wrong == nullptr && !place_.enterLocked(place_.loop(), shared_from_this(), wantedEventsLocked())) {
            wrong = "no room in the worker's event loop";
        }
        if (wrong == nullptr) watchLocked();
    }
    if (wrong != nullptr) return close(wrong);
    handleArrived();
    handleRest();
}

void FrameStream::shutDown() noexcept {
    ::shutdown(socket_.get(), SHUT_RDWR);
}

void FrameStream::close(const char* why) noexcept {
    const auto self = shared_from_this();
    {
        const std::lock_guard lock{mutex_};
        if (closed_) return;
        place_.loop().checkThread();
        closed_ = true;
        place_.forgetLocked();
    }
    shutDown();
    handleClosed(why);
    incomplete_.reset();
    if (shares_) shares_->incompleteBytes.change(std::exchange(incompleteBytes_, 0), 0, incompleteOfUser());
    std::unique_lock lock{mutex_};
    settledQueueLocked(lock).clear();
    if (shares_) shares_->unreadBytes.change(std::exchange(charged_, 0), 0, unreadOfUser());
    over_ = true;
    changed_.notify_all();
}

void FrameStream::nameLocked(std::string_view application) {
    constexpr unsigned char continuation = 0x80;
    std::size_t size = std::min<std::size_t>(application.size(), limits_.nameBytes);
    while (size > 0 && size < application.size() && (static_cast<unsigned char>(application[size]) & 0xc0U) == continuation)
        --size;
    peer_.application = application.substr(0, size);
}

void FrameStream::commit(bool isMuch) {
    if (Loop* const current = isMuch ? nullptr : Loop::current(); current != nullptr) {
        if (!current->isFlushDue(*this)) current->flushLater(shared_from_this());
    } else {
        flush();
    }
}

void FrameStream::flush() {
    std::unique_lock lock{mutex_};
    if (queue_.isSending() || closed_) return;
    if (queue_.isBlocked()) {
        boundLocked();
    } else {
        sendQueuedLocked(lock);
    }
}

void FrameStream::sendQueuedLocked(std::unique_lock<std::mutex>& lock) {
    queue_.beginSending();
    while (queue_.send(lock, socket_.get(), closed_) && drainLocked() && queue_.size() > 0) {
    }
    queue_.endSending();
    if (queue_.size() == 0) {
        queue_.shrink(limits_.conflationBytes);
        if (inputEnded_ && !closed_ && owesNothingLocked()) {
            endWanted_ = "the peer has ended its side, and has all that it asked for";
            place_.loopLocked()->post([self = shared_from_this()]() noexcept { self->follow(); });
        }
    }
    boundLocked();
}

// False if there is no memory to send what waits; this ends the connection.
bool FrameStream::drainLocked() noexcept {
    try {
        handleDrainedLocked();
        return true;
    } catch (const std::exception&) {
        cut_ = true;
        shutDown();
        return false;
    }
}

// Whether this is more than one peer may leave unread, or than its share of what all clients may. Charges the client for it.
bool FrameStream::leavesTooMuchLocked() {
    const std::size_t unread = queue_.isBlocked() ? unreadLocked() : 0;
    if (unread == charged_ || !shares_) return unread > limits_.queuedHardBytes;
    const bool isTooMuch = unread > limits_.queuedHardBytes ||
                           (unread > charged_ && !shares_->unreadBytes.admits(charged_, unread - charged_, unreadOfUser()));
    shares_->unreadBytes.change(std::exchange(charged_, unread), unread, unreadOfUser());
    return isTooMuch;
}

bool FrameStream::admitsUnreadLocked() const noexcept {
    const std::size_t unread = unreadLocked();
    if (unread + limits_.queuedSoftBytes > limits_.queuedHardBytes) return false;
    return !shares_ || unread <= charged_ ||
           shares_->unreadBytes.admits(charged_, unread + limits_.conflationBytes - charged_, unreadOfUser());
}

// Enforces the limit for what the peer leaves unread.
void FrameStream::boundLocked() {
    if (!cut_ && leavesTooMuchLocked()) {
        cut_ = true;
        ++counters_.slowPeersCut;
        tracing::logCV(channel, 3, "%s cut: it left %zu bytes unread", peer_.toString().c_str(), unreadLocked());
        shutDown();
    }
    watchLocked();
}

// Asks the loop for the events that are needed now: room to write while blocked, and requests unless too many answers are queued.
void FrameStream::watchLocked() {
    if (!place_.isReadLocked() || closed_) return;
    const bool wasPaused = paused_;
    if (queuedLocked() > limits_.queuedSoftBytes && pausesReading()) {
        paused_ = true;
    } else if (queuedLocked() <= limits_.queuedSoftBytes / 2) {
        paused_ = false;
    }
    place_.watchLocked(wantedEventsLocked());
    if (wasPaused && !paused_) resumeLaterLocked();
}

std::uint32_t FrameStream::wantedEventsLocked() const noexcept {
    return (paused_ || waits_ || inputEnded_ ? 0U : static_cast<std::uint32_t>(EPOLLIN)) |
           (queue_.isBlocked() ? static_cast<std::uint32_t>(EPOLLOUT) : 0U);
}

void FrameStream::resumeLaterLocked() {
    place_.loopLocked()->post([self = shared_from_this(), stay = place_.stayLocked()]() noexcept {
        {
            const std::lock_guard lock{self->mutex_};
            // The connection has moved meanwhile: carried bytes are handled where it arrives.
            if (!self->place_.isHereLocked() || self->place_.stayLocked() != stay) return;
        }
        self->place_.endResuming();
        self->handleRest();
    });
}

void FrameStream::onReady(std::uint32_t events) {
    const auto self = shared_from_this();
    try {
        serve(events);
    } catch (const std::exception& error) {
        giveUp(error);
    }
}

void FrameStream::serve(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) {
        std::unique_lock lock{mutex_};
        queue_.unblock();
        if (!queue_.isSending() && !closed_) sendQueuedLocked(lock);
    }
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR | EPOLLRDHUP)) != 0) receive((events & (EPOLLHUP | EPOLLERR)) != 0);
}

void FrameStream::receive(bool isHungUp) {
    // This connection's frames are waiting for their turn; the kernel will report again.
    if (place_.resumes() || (waits_ && !isHungUp)) return;
    auto& carried = place_.carried;
    if (turns_ != nullptr && !isHungUp && !isTheirTurn(Turns::turnsOfReceiving(carried.size()))) return;
    const auto room = place_.loop().receiveBuffer();
    const auto size = ::recv(socket_.get(), room.data(), room.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (size <= 0) {
        handleCarried(true);
        if (size == 0 && !isHungUp && handleInputEnded()) {
            const std::lock_guard lock{mutex_};
            inputEnded_ = true;
            watchLocked();
        } else {
            close("connection lost");
        }
        return;
    }
    const std::span<const std::uint8_t> received{room.data(), static_cast<std::size_t>(size)};
    if (carried.empty()) {
        isHandling_ = true;
        const std::size_t used = handleFrames(received, false);
        isHandling_ = false;
        if (used < received.size()) carried.assign(received.begin() + static_cast<std::ptrdiff_t>(used), received.end());
    } else {
        carried.insert(carried.end(), received.begin(), received.end());
        handleCarried(false);
    }
    boundIncomplete();
}

// Enforces the time limit for completing a frame, and the client's share of the memory for incomplete frames.
void FrameStream::boundIncomplete() {
    const std::size_t kept = closed_ ? 0 : place_.carried.capacity();
    if (!shares_ || (kept == 0 && incompleteBytes_ == 0)) return;
    const bool isTooMuch = kept > incompleteBytes_ &&
                           !shares_->incompleteBytes.admits(incompleteBytes_, kept - incompleteBytes_, incompleteOfUser());
    shares_->incompleteBytes.change(std::exchange(incompleteBytes_, kept), kept, incompleteOfUser());
    if (isTooMuch) {
        ++counters_.peersRefused;
        close("no room for the rest of a frame");
    } else if (kept == 0 || place_.carried.empty() || paused_ || waits_ || place_.resumes()) {
        incomplete_.reset();
    } else if (!incomplete_ || hasHandled_) {
        if (!incomplete_) {
            incomplete_.emplace(loop(), [this] {
                ++counters_.peersRefused;
                close("a frame was not completed in time");
            });
        }
        incomplete_->arm(Clock::now() + limits_.incompleteFrame);
    }
    hasHandled_ = false;
}

// Whether what takes so many turns of the user may be done now. If not, it will be later, without further ado.
bool FrameStream::isTheirTurn(std::uint32_t turns) {
    if (waits_) return false;
    if (turns_->take(*user_, turns)) return true;
    waits_ = true;
    turns_->await(user_, weak_from_this());
    const std::lock_guard lock{mutex_};
    watchLocked();
    return false;
}

void FrameStream::goOn() {
    if (closed_ || !std::exchange(waits_, false)) return;
    {
        const std::lock_guard lock{mutex_};
        watchLocked();
    }
    handleRest();
}

void FrameStream::setUserLocked(std::shared_ptr<User> user, Turns* turns) {
    if (user_ != user && shares_) {
        if (user_) {
            shares_->unreadBytes.charge(charged_, 0, user_->unread);
            shares_->incompleteBytes.charge(incompleteBytes_, 0, user_->incomplete);
        }
        if (user) {
            shares_->unreadBytes.charge(0, charged_, user->unread);
            shares_->incompleteBytes.charge(0, incompleteBytes_, user->incomplete);
        }
    }
    user_ = std::move(user);
    turns_ = turns;
    if (turns_ == nullptr && std::exchange(waits_, false)) resumeLaterLocked();
}

void FrameStream::putDownLocked() {
    // After its end, the connection has no loop to ask. The user's others go on a little later, by themselves.
    if (!Turns::putDown(*user_) || isClosedLocked()) return;
    place_.loopLocked()->post([self = shared_from_this()]() noexcept {
        if (self->turns_ != nullptr) self->turns_->resume(*self->user_);
    });
}

// Handles what had to wait.
void FrameStream::handleRest() noexcept {
    try {
        handleCarried(false);
        boundIncomplete();
    } catch (const std::exception& error) {
        giveUp(error);
    }
}

void FrameStream::giveUp(const std::exception& error) noexcept {
    tracing::logCV(channel, 4, "the connection of %s is given up: %s", peer_.toString().c_str(), error.what());
    close("given up");
}

void FrameStream::handleCarried(bool all) {
    if (place_.carried.empty()) return;
    // Frames are handled in a buffer of their own, so that nothing a handler causes can move them.
    std::vector<std::uint8_t> bytes;
    bytes.swap(place_.carried);
    isHandling_ = true;
    const std::size_t used = handleFrames(bytes, all);
    isHandling_ = false;
    if (used == bytes.size()) return;
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(used));
    place_.carried.swap(bytes);
}

std::size_t FrameStream::handleFrames(std::span<const std::uint8_t> bytes, bool all) {
    std::size_t used = 0;
    for (std::uint32_t count = 0; bytes.size() - used >= wire::headerSize; ++count) {
        if (closed_) return bytes.size();
        if (paused_.load(std::memory_order_relaxed) && !all) return used;
        wire::FrameHeader header;
        const char* wrong = wire::readHeader(bytes.subspan(used), header);
        if (wrong == nullptr && header.bodyLength > limits_.frameBytes) wrong = "frame larger than the limit";
        if (wrong == nullptr) {
            if (bytes.size() - used - wire::headerSize < header.bodyLength) return used;
            const bool isLate = count == limits_.framesPerWakeUp && !all;
            if (turns_ != nullptr && !all && !isLate && !isTheirTurn(Turns::turnsOfFrame(header.bodyLength))) return used;
            if (isLate) {
                if (place_.beginResuming()) {
                    const std::lock_guard lock{mutex_};
                    resumeLaterLocked();
                }
                return used;
            }
            wrong = handleFrame(header, bytes.subspan(used + wire::headerSize, header.bodyLength));
            used += wire::headerSize + header.bodyLength;
            hasHandled_ = true;
        }
        if (wrong != nullptr) {
            ++counters_.malformedPeers;
            tracing::logCV(channel, 3, "%s sent a malformed frame: %s; connection closed", peer_.toString().c_str(), wrong);
            close(wrong);
            return bytes.size();
        }
    }
    return used;
}

}  // namespace kelo::net
