#include "net/client_connection.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "tracing/channel.h"

// Each request has a slot. Its id, which is also the caller's handle, has the slot's index in the low 16 bits and above them a
// number that is never used again in this process. So finding a slot is one array access, and a late or foreign id finds a slot
// with another number.
//
// A request ends exactly once because its handler is taken out of its slot exactly once, under the lock: by a terminal frame, by
// a `next` that ends it, by `cancel`, by the deadline, or by the loss of the connection. Only a `next` that others may follow
// calls the handler while it is in its slot. The slot then counts as delivering, and a cancellation that arrives meanwhile is
// carried out by the delivering thread when the handler has returned.
//
// Whether a request that ends early was sent is known from the queue: what is no longer there has gone to the kernel. A request
// of which the kernel has no byte is taken out of the queue, so nobody acts on what was called "not sent", and the provider need
// not be told of a cancellation. A request of which the kernel has a part stays, "outcome unknown", unless the connection is
// over: a request that lacks even its last byte cannot have been acted on.
//
// All clients of a process share one connection, and what one of them does must not get another one's requests refused or delay
// them for long. The delay depends on how much the provider still has to send, because the next answer comes after that. So each
// account has a share, in bytes, of the first answers that are still to come, and a request for which there is no room is held
// until there is. The sizes are estimates: an answer is expected to be as large as those before it. Requests are also held while
// the provider does not read what is already queued. Each account has a queue of held requests, and the queues take turns, so a
// client that asks for little waits little. Deadlines run meanwhile. Only what exceeds an account's share of what may be held, in
// number or in bytes, is refused. Streams end when their consumers want it, and nothing can wait for that, so a stream beyond its
// account's share is refused at once. The connection itself never has more queued than one drain may bring, however much is asked
// for, and is never cut because of it.
//
// Deadlines need no timer per request: one time stamp in the loop is armed for the earliest. On the thread that reads, arming is
// a store. A request from another thread must wake the loop to arm it, but only if nothing is armed that fires earlier. Once
// armed for another thread it stays armed until it fires, and then looks for what is due next, so a steady client causes one
// wake-up per deadline, not one per request.

namespace kelo::net {
namespace {

std::atomic<std::uint64_t> nextSerial{1};

constexpr unsigned indexBits = 16;
constexpr const char* tooMany = "too many requests in flight, request not sent";
static_assert(sizeof(void*) == sizeof(std::uint64_t), "request handles are ids");

void* toHandle(std::uint64_t id) noexcept {
    return reinterpret_cast<void*>(id);  // NOLINT(performance-no-int-to-ptr): opaque
}
std::uint32_t indexOf(std::uint64_t id) noexcept {
    return static_cast<std::uint32_t>(id & ((1U << indexBits) - 1U));
}
std::uint64_t toId(void* handle) noexcept {
    return reinterpret_cast<std::uint64_t>(handle);
}

std::chrono::milliseconds deadlineOf(const Request& request, RequestLimits limits) {
    if (request.options()) {
        const auto* value = request.options()->find("deadline");
        if (value != nullptr && value->asInt() != nullptr) return std::chrono::milliseconds{*value->asInt()};
    }
    return limits.deadline;
}

// Calls a response handler. If it throws, the connection's other requests must not suffer. False if it threw.
template <class Call>
bool guarded(const char* event, Call call) noexcept {
    static const tracing::Channel channel{"KELO_RUNTIME"};
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        tracing::logCV(channel, 4, "a response handler's %s ended with an exception: %s", event, error.what());
    } catch (...) {
        tracing::logCV(channel, 4, "a response handler's %s ended with an unknown exception", event);
    }
    return false;
}

}  // namespace

ClientConnection::ClientConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                                   std::string servicePath, Events events)
    : FrameStream{std::move(socket), std::move(peer), limits, counters, nullptr},
      servicePath_{std::move(servicePath)},
      events_{std::move(events)},
      leastExpected_{limits.awaitedBytes / limits.oneShotRequests},
      mostExpected_{std::max(limits.awaitedBytes / 8, leastExpected_)},
      awaitedShares_{limits.awaitedBytes, limits.connections},
      streamShares_{limits.openStreams, limits.connections},
      heldShares_{limits.heldRequests, limits.connections},
      heldByteShares_{limits.heldBytes, limits.connections} {}

void ClientConnection::sayHello(std::string_view application) {
    {
        const std::lock_guard lock{mutex_};
        wire::appendHello(outLocked(), {wire::protocolVersion, std::string{application}, servicePath_, {}});
    }
    commit();
    timer_.emplace(loop(), [this] { close("no hello in time"); });
    timer_->arm(Clock::now() + limits_.handshake);
}

void* ClientConnection::request(const Request& request, Handler&& handler, RequestLimits requestLimits) {
    Handler owned = std::move(handler);
    const bool oneShot = request.isOneShot() || owned->isOneShot();
    Account* const account = owned->account();
    const auto deadline = deadlineOf(request, requestLimits);
    const auto due = deadline.count() > 0 ? Clock::now() + deadline : Clock::time_point::max();
    std::uint64_t id = 0;
    std::uint16_t status = 503;
    const char* refusal = nullptr;
    bool armsHere = false;
    {
        const std::lock_guard lock{mutex_};
        auto& out = outLocked();
        const std::size_t before = out.size();
        if (!ready_ || isClosedLocked()) {
            refusal = "connection lost, request not sent";
        } else if (Share& share = shareLocked(account); !oneShot && !streamShares_.admits(share.streams, 1, share.kind())) {
            refusal = tooMany;
        } else {
            const bool mustWait = mustWaitLocked(share);
            Slot& slot = acquireLocked(share, oneShot);
            try {
                wire::appendRequest(out, slot.id, request, oneShot);
                if (out.size() - before - wire::headerSize > limits_.frameBytes) {
                    status = 413;
                    refusal = "request larger than a frame may be, not sent";
                } else if (!mustWait) {
                    awaitLocked(slot, share.expected);
                } else if (!holdLocked(slot, before)) {
                    refusal = tooMany;
                }
            } catch (...) {
                out.truncate(before);
                releaseLocked(slot);
                throw;
            }
            if (refusal != nullptr) {
                out.truncate(before);
                releaseLocked(slot);
            } else {
                id = slot.id;
                slot.handler = std::move(owned);
                slot.due = due;
                slot.deadline = deadline;
                armsHere = loop().isCurrentThread();
                if (!armsHere && due < askedDue_) {
                    askedDue_ = due;
                    // Still under the lock. Once that is released, the connection may be read on another loop, and this loop may
                    // be destroyed.
                    loop().post([self = std::static_pointer_cast<ClientConnection>(shared_from_this())] { self->expire(); });
                }
            }
        }
        if (refusal == tooMany) ++counters_.requestsRefused;
    }
    if (refusal != nullptr) {
        // NOLINTNEXTLINE(bugprone-use-after-move): it is moved only if there is no refusal
        guarded("onError", [&] { owned->onError(Response::createErrorResponse(status, servicePath_ + ": " + refusal)); });
        return IKeloApi::UNDEFINED_REQUEST_HANDLE;
    }
    ++counters_.requestsSent;
    if (armsHere && due != Clock::time_point::max()) arm(due);
    commit();
    return toHandle(id);
}

void ClientConnection::cancel(void* handle) {
    const std::uint64_t id = toId(handle);
    Handler over;
    {
        std::unique_lock lock{mutex_};
        if (deliveringLast_ == id) deliveringLast_ = 0;
        if (findLocked(id) == nullptr) return;
        bool isUnsent = false;
        if (queuedLocked() > 0 && !isClosedLocked()) {
            settledQueueLocked(lock).withdraw([&](std::uint64_t request) { return request == id && (isUnsent = true); });
        }
        Slot* const slot = findLocked(id);
        if (slot == nullptr || slot->cancelled) return;
        if (!isClosedLocked() && slot->held.empty() && !isUnsent) wire::appendBare(outLocked(), wire::FrameType::cancel, id);
        if (slot->delivering) {
            slot->cancelled = true;
        } else {
            over = releaseLocked(*slot);
            sendHeldLocked();
        }
    }
    commit();
}

ClientConnection::Usage ClientConnection::usage() const {
    const std::lock_guard lock{mutex_};
    Usage usage{.requests = slots_.size() - free_.size(), .streams = streams_, .queuedBytes = queuedLocked()};
    for (const auto& [account, share] : accounts_) usage.held += share.held;
    return usage;
}

const char* ClientConnection::handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) {
    if (header.type == wire::FrameType::hello) return handleHello(body);
    if (!ready_) return "an answer before the hello";
    hasAnswered_ = true;
    answerSize_ = body.size();
    switch (header.type) {
        case wire::FrameType::next:
        case wire::FrameType::error: {
            if (const char* wrong = wire::readResponse(body, response_, responseFields_)) return wrong;
            if (header.type == wire::FrameType::error) {
                deliverTerminal(header.requestId, [&](auto& handler) { handler.onError(response_); });
            } else if ((header.flags & wire::flagEnd) != 0) {
                deliverLast(header.requestId);
            } else {
                deliverNext(header.requestId);
            }
            return nullptr;
        }
        case wire::FrameType::completed:
            if (const char* wrong = wire::readBare(body)) return wrong;
            deliverTerminal(header.requestId, [](auto& handler) { handler.onCompleted(); });
            return nullptr;
        default:
            return "a provider asks nothing";
    }
}

const char* ClientConnection::handleHello(std::span<const std::uint8_t> body) {
    if (ready_) return "a second hello";
    wire::Hello hello;
    if (const char* wrong = wire::readHello(body, hello)) return wrong;
    if (hello.version != wire::protocolVersion) return "another version of the protocol";
    timer_.reset();
    {
        const std::lock_guard lock{mutex_};
        ready_ = true;
        nameLocked(hello.application);
    }
    events_.ready(*this, hello);
    return nullptr;
}

void ClientConnection::deliverNext(std::uint64_t id) {
    IResponseHandler<Response>* handler = nullptr;
    bool sends = false;
    {
        const std::lock_guard lock{mutex_};
        Slot* const slot = deliverableLocked(id);
        if (slot == nullptr) return;
        slot->delivering = true;
        slot->due = Clock::time_point::max();
        handler = slot->handler.get();
        if (slot->awaited > 0) {
            noteAnswerLocked(*slot);
            sends = sendHeldLocked();
        }
    }
    if (sends) commit();
    bool finished = true;  // also if the handler throws
    const bool handled = guarded("onNext", [&] { finished = handler->onNext(response_); });
    Ended ended;
    bool lost = false;
    bool failed = false;
    {
        const std::lock_guard lock{mutex_};
        Slot* const slot = findLocked(id);
        slot->delivering = false;
        if (!finished && !slot->cancelled && !slot->lost) return;
        lost = slot->lost && !finished && !slot->cancelled;
        failed = !handled && !slot->cancelled;
        const bool tell = finished && !slot->cancelled && !isClosedLocked();
        if (tell) wire::appendBare(outLocked(), wire::FrameType::cancel, id);
        ended = endLocked(*slot);
        ended.sends = ended.sends || tell;
    }
    settle(ended);
    if (lost) guarded("onError", [&] { ended.handler->onError(lossResponse(true)); });
    if (failed) fail(*ended.handler);
}

// Delivers a value with which the provider ends the request. The request is over before its handler is called, so nobody else can
// end it, and nothing has to be looked up again afterwards.
void ClientConnection::deliverLast(std::uint64_t id) {
    Ended ended;
    {
        const std::lock_guard lock{mutex_};
        Slot* const slot = deliverableLocked(id);
        if (slot == nullptr) return;
        ended = endLocked(*slot);
        deliveringLast_ = id;
    }
    settle(ended);
    bool finished = false;
    const bool handled = guarded("onNext", [&] { finished = ended.handler->onNext(response_); });
    if (finished) return;
    {
        const std::lock_guard lock{mutex_};
        if (deliveringLast_ != id) return;  // cancelled meanwhile
    }
    if (handled) {
        guarded("onCompleted", [&] { ended.handler->onCompleted(); });
    } else {
        fail(*ended.handler);
    }
}

template <class Deliver>
void ClientConnection::deliverTerminal(std::uint64_t id, Deliver deliver) {
    Ended ended;
    {
        const std::lock_guard lock{mutex_};
        Slot* const slot = deliverableLocked(id);
        if (slot == nullptr) return;
        ended = endLocked(*slot);
    }
    settle(ended);
    guarded("terminal event", [&] { deliver(*ended.handler); });
}

// The request that a frame belongs to; null if the frame is late.
ClientConnection::Slot* ClientConnection::deliverableLocked(std::uint64_t id) noexcept {
    Slot* const slot = findLocked(id);
    if (slot != nullptr && !slot->delivering) return slot;
    ++counters_.lateFrames;
    return nullptr;
}

// Ends a request and sends others that had to wait for this. `settle` must be called afterwards, without the lock.
ClientConnection::Ended ClientConnection::endLocked(Slot& slot) noexcept {
    if (slot.awaited > 0) noteAnswerLocked(slot);
    Ended ended{releaseLocked(slot)};
    ended.sends = sendHeldLocked();
    ended.wasLast = slots_.size() == free_.size() && askedDue_ == Clock::time_point::max();
    return ended;
}

void ClientConnection::settle(const Ended& ended) {
    if (ended.wasLast && timer_) timer_->disarm();
    if (ended.sends) commit();
}

// After a handler threw: its client would otherwise wait for ever.
void ClientConnection::fail(IResponseHandler<Response>& handler) const {
    guarded("onError",
            [&] { handler.onError(Response::createErrorResponse(500, servicePath_ + ": the answer could not be handled")); });
}

Response ClientConnection::lossResponse(bool sent) const {
    return Response::createErrorResponse(503,
                                         servicePath_ + ": connection lost, " + (sent ? "outcome unknown" : "request not sent"));
}

void ClientConnection::handleClosed(const char* why) {
    timer_.reset();
    struct LostRequest {
        std::uint64_t id;
        Handler handler;
        bool sent;
    };
    std::vector<LostRequest> ended;
    {
        std::unique_lock lock{mutex_};
        settledQueueLocked(lock).forEachUnsentRequest([this](std::uint64_t id) {
            if (Slot* const slot = findLocked(id)) slot->unsent = true;
        });
        for (Slot& slot : slots_) {
            if (slot.id == 0) continue;
            if (slot.delivering) {
                slot.lost = true;
                continue;
            }
            const std::uint64_t id = slot.id;
            const bool sent = slot.held.empty() && !slot.unsent;
            ended.push_back({id, releaseLocked(slot), sent});
        }
    }
    // In the order in which the requests were made.
    std::sort(ended.begin(), ended.end(),
              [](const LostRequest& a, const LostRequest& b) { return a.id >> indexBits < b.id >> indexBits; });
    counters_.endedByLoss += ended.size();
    for (LostRequest& request : ended) {
        guarded("onError", [&] { request.handler->onError(lossResponse(request.sent)); });
        request.handler.reset();
    }
    events_.closed(*this, why);
}

void ClientConnection::handleLeavingLocked() {
    timer_.reset();
}

void ClientConnection::handleArrived() {
    expire();
}

void ClientConnection::expire() {
    struct LateRequest {
        Handler handler;
        std::chrono::milliseconds deadline;
        bool sent;
    };
    std::vector<LateRequest> ended;
    auto next = Clock::time_point::max();
    const auto now = Clock::now();
    {
        std::unique_lock lock{mutex_};
        // If another loop reads by now, it has checked the deadlines when it began to.
        SendQueue& queue = settledQueueLocked(lock);
        if (isClosedLocked() || !loop().isCurrentThread()) return;
        queue.withdraw([&](std::uint64_t id) {
            Slot* const slot = findLocked(id);
            return slot != nullptr && slot->due <= now && (slot->unsent = true);
        });
        for (Slot& slot : slots_) {
            if (slot.id == 0 || slot.delivering) continue;
            if (slot.due > now) {
                next = std::min(next, slot.due);
                continue;
            }
            const bool sent = slot.held.empty() && !slot.unsent;
            if (sent) wire::appendBare(outLocked(), wire::FrameType::cancel, slot.id);
            const auto deadline = slot.deadline;
            ended.push_back({releaseLocked(slot), deadline, sent});
        }
        sendHeldLocked();
        if (askedDue_ != Clock::time_point::max()) askedDue_ = next;
    }
    if (timer_) timer_->disarm();
    if (next != Clock::time_point::max()) arm(next);
    if (ended.empty()) return;
    commit();
    counters_.deadlinesMissed += ended.size();
    for (LateRequest& request : ended) {
        const auto response =
            Response::createErrorResponse(504, servicePath_ + ": no answer within " + std::to_string(request.deadline.count()) +
                                                   " ms, " + (request.sent ? "outcome unknown" : "request not sent"));
        guarded("onError", [&] { request.handler->onError(response); });
        request.handler.reset();
    }
}

void ClientConnection::arm(Clock::time_point due) {
    if (!timer_) timer_.emplace(loop(), [this] { expire(); });
    if (due < timer_->due()) timer_->arm(due);
}

ClientConnection::Share& ClientConnection::shareLocked(Account* account) {
    if (lastShare_ != nullptr && lastShare_->account.get() == account) return *lastShare_;
    // An idle client's entry is kept for its next request, unless there are too many.
    if (accounts_.size() >= 2 * std::size_t{limits_.connections}) {
        lastShare_ = nullptr;
        std::erase_if(accounts_, [](const auto& entry) { return entry.second.isIdle(); });
    }
    const auto [entry, isNew] = accounts_.try_emplace(account);
    Share& share = entry->second;
    if (isNew) share.expected = std::min(16 * leastExpected_, mostExpected_);  // until it is known
    if (account != nullptr) share.account = account->shared_from_this();
    lastShare_ = &share;
    return share;
}

ClientConnection::Slot& ClientConnection::acquireLocked(Share& share, bool oneShot) {
    std::uint32_t index = 0;
    if (free_.empty()) {
        index = static_cast<std::uint32_t>(slots_.size());
        slots_.emplace_back();
        free_.reserve(slots_.capacity());  // so that releasing needs no memory
    } else {
        index = free_.back();
        free_.pop_back();
    }
    Slot& slot = slots_[index];
    slot.id = nextSerial.fetch_add(1, std::memory_order_relaxed) << indexBits | index;
    slot.share = &share;
    slot.oneShot = oneShot;
    if (!oneShot) {
        ++streams_;
        streamShares_.change(share.streams, share.streams + 1);
        ++share.streams;
    }
    return slot;
}

bool ClientConnection::mustWaitLocked(const Share& share) const noexcept {
    return isSlowLocked() || (queueWasFull_ && turn_ != nullptr) || share.held > 0 || !hasRoomLocked(share);
}

// Whether the account may await one more answer. A client may await two, however large they are, so that the provider need not
// wait for its next request.
bool ClientConnection::hasRoomLocked(const Share& share) const noexcept {
    if (share.awaited + share.expected <= awaitedShares_.equalPart()) return true;
    return share.awaited < limits_.conflationBytes + share.expected &&
           awaitedShares_.admits(share.awaited, share.expected, share.kind());
}

// `bytes`: expected size of the answer; 0: it has come, or is no longer awaited.
void ClientConnection::awaitLocked(Slot& slot, std::size_t bytes) noexcept {
    Share& share = *slot.share;
    const std::size_t awaited = share.awaited - slot.awaited + bytes;
    awaitedShares_.change(share.awaited, awaited);
    share.awaited = awaited;
    slot.awaited = bytes;
}

// The frame that is being handled is the request's first answer.
void ClientConnection::noteAnswerLocked(Slot& slot) noexcept {
    constexpr std::size_t slowness = 64;  // so that smaller answers lower the estimate gradually
    std::size_t& expected = slot.share->expected;
    if (answerSize_ > expected) {
        expected = std::clamp(answerSize_, leastExpected_, mostExpected_);
    } else if (expected > leastExpected_) {
        expected = std::max(expected - expected / slowness, leastExpected_);
    }
    awaitLocked(slot, 0);
}

// Takes the slot's frame, which begins at `begin` of what was appended, out of the buffer and holds it until there is room. If
// its account has too much waiting, returns false and does nothing.
bool ClientConnection::holdLocked(Slot& slot, std::size_t begin) {
    auto& out = outLocked();
    Share& share = *slot.share;
    const auto appended = out.bytes().subspan(begin);
    if (!heldShares_.admits(share.held, 1, share.kind()) ||
        !heldByteShares_.admits(share.heldBytes, appended.size(), share.kind()))
        return false;
    slot.held.assign(appended.begin(), appended.end());
    out.truncate(begin);
    const std::uint32_t index = indexOf(slot.id);
    if (share.held == 0) {
        share.firstHeld = index;
        // At the end of the ring: before the one whose turn is next.
        share.after = turn_ == nullptr ? &share : turn_;
        share.before = turn_ == nullptr ? &share : turn_->before;
        share.before->after = &share;
        share.after->before = &share;
        if (turn_ == nullptr) turn_ = &share;
        ++waiting_;
    } else {
        slots_[share.lastHeld].heldAfter = index;
        slot.heldBefore = share.lastHeld;
    }
    share.lastHeld = index;
    queueWasFull_ = isSlowLocked();
    chargeHeld(share, share.held + 1, share.heldBytes + slot.held.size());
    ++counters_.requestsHeld;
    return true;
}

void ClientConnection::chargeHeld(Share& share, std::uint32_t held, std::size_t bytes) noexcept {
    heldShares_.change(share.held, held);
    heldByteShares_.change(share.heldBytes, bytes);
    if (share.account) {
        share.account->heldRequests += held - share.held;
        share.account->heldBytes += bytes - share.heldBytes;
    }
    share.held = held;
    share.heldBytes = bytes;
}

void ClientConnection::unholdLocked(Slot& slot) noexcept {
    Share& share = *slot.share;
    const std::uint32_t index = indexOf(slot.id);
    (share.firstHeld == index ? share.firstHeld : slots_[slot.heldBefore].heldAfter) = slot.heldAfter;
    (share.lastHeld == index ? share.lastHeld : slots_[slot.heldAfter].heldBefore) = slot.heldBefore;
    chargeHeld(share, share.held - 1, share.heldBytes - slot.held.size());
    slot.held = {};
    if (share.held > 0) return;
    share.before->after = share.after;
    share.after->before = share.before;
    if (turn_ == &share) turn_ = share.after == &share ? nullptr : share.after;
    --waiting_;
}

// If there is no memory to send a held request, the connection ends, as elsewhere; the request whose end made the room is not
// affected.
bool ClientConnection::sendHeldLocked() noexcept {
    bool any = false;
    queueWasFull_ = false;
    for (std::size_t passed = 0; passed < waiting_ && !isClosedLocked();) {
        if (isSlowLocked()) {
            queueWasFull_ = true;
            break;
        }
        Share& share = passed == 0 ? nextShare() : *turn_;
        Slot& slot = slots_[share.firstHeld];
        turn_ = share.after;
        if (!hasRoomLocked(share)) {
            ++passed;
            continue;
        }
        try {
            outLocked().write(std::span<const std::uint8_t>{slot.held});
        } catch (const std::exception&) {
            shutDown();
            break;
        }
        unholdLocked(slot);
        awaitLocked(slot, share.expected);
        passed = 0;
        any = true;
    }
    return any;
}

// The share whose turn it is: the next one of another user than the last, if there is one, so that users take turns however many
// clients each of them has.
ClientConnection::Share& ClientConnection::nextShare() noexcept {
    Share* next = turn_;
    for (std::size_t passed = 1; passed < waiting_ && next->uid() == lastUser_; ++passed) next = next->after;
    if (next->uid() == lastUser_) next = turn_;
    lastUser_ = next->uid();
    return *next;
}

ClientConnection::Slot* ClientConnection::findLocked(std::uint64_t id) noexcept {
    const std::size_t index = indexOf(id);
    return id != 0 && index < slots_.size() && slots_[index].id == id ? &slots_[index] : nullptr;
}

ClientConnection::Handler ClientConnection::releaseLocked(Slot& slot) {
    Share& share = *slot.share;
    if (!slot.held.empty()) unholdLocked(slot);
    if (!slot.oneShot) {
        --streams_;
        streamShares_.change(share.streams, share.streams - 1);
        --share.streams;
    }
    if (slot.awaited > 0) awaitLocked(slot, 0);
    free_.push_back(indexOf(slot.id));
    Handler handler = std::move(slot.handler);
    slot = Slot{};
    return handler;
}

}  // namespace kelo::net
