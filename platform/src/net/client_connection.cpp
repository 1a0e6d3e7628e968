#include "net/client_connection.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "tracing/channel.h"

// Each request has a slot. Its id, which is also the handle that the caller gets, is the slot's index in the low 16 bits and a
// number that never recurs in this process above them: finding a slot is one array access, and a late or foreign id meets a slot
// that has another number.
//
// A request ends exactly once because its handler is taken out of its slot exactly once, under the lock: by a terminal frame, by
// a `next` that ends it, by `cancel`, by the deadline, or by the loss of the connection. Only a `next` that more may follow calls
// the handler while it stays in its slot; the slot then counts as delivering, and a cancellation that arrives meanwhile is
// carried out by the delivering thread when it is back.
//
// Whether a request that ends by loss had been sent is known from two counts of bytes: where its frame ended in what was
// appended, and how much the kernel has taken. A frame of which the kernel lacks even the last byte cannot have been acted on:
// "not sent". For any other the outcome is unknown.
//
// A provider takes so many one-shot requests at a time over one connection, which all clients of a process share: what one of
// them has in flight must not be what another is refused for. So a one-shot request for which there is no room is held, in the
// order of asking, until another one has ended; its deadline runs meanwhile. Only when too many are held, in number or in bytes,
// is one refused. Streams end when their consumers want it, which nobody can wait for: they are refused at once.
//
// The deadline needs no timer per request: one time stamp in the loop, armed for the earliest. On the thread that reads, arming
// is a store. A request from another thread must wake the loop to arm it, but only if nothing is armed that fires before: once
// armed on another thread's behalf it stays so until it fires, and then looks for what is due next, so that a steady client
// causes one wake-up a deadline, not one a request.

namespace kelo::net {
namespace {

std::atomic<std::uint64_t> nextSerial{1};

constexpr unsigned indexBits = 16;
constexpr std::uint64_t notSent = ~std::uint64_t{0};  // the end of a frame that was not appended
static_assert(sizeof(void*) == sizeof(std::uint64_t), "request handles are ids");

void* toHandle(std::uint64_t id) noexcept {
    return reinterpret_cast<void*>(id);
}  // NOLINT(performance-no-int-to-ptr): opaque
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

// Handlers are of all kinds; one that throws must not take the connection's other requests with it. False when it threw.
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
    : FrameStream{std::move(socket), std::move(peer), limits, counters},
      servicePath_{std::move(servicePath)},
      events_{std::move(events)} {}

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
        const bool isFull = oneShot ? oneShots_ >= limits_.oneShotRequests : streams_ >= limits_.openStreams;
        if (!ready_ || isClosedLocked()) {
            refusal = "connection lost, request not sent";
        } else if (isFull && (!oneShot || held_.size() >= limits_.heldRequests || heldBytes_ >= limits_.queuedHardBytes)) {
            refusal = "too many requests in flight, request not sent";
            ++counters_.requestsRefused;
        } else {
            Slot& slot = acquireLocked(oneShot);
            id = slot.id;
            try {
                wire::appendRequest(out, id, request, oneShot);
                if (isFull) holdLocked(slot, before);
            } catch (...) {
                out.truncate(before);
                releaseLocked(slot);
                throw;
            }
            const std::size_t size = slot.held.empty() ? out.size() - before : slot.held.size();
            if (size - wire::headerSize > limits_.frameBytes) {
                out.truncate(before);
                releaseLocked(slot);
                status = 413;
                refusal = "request larger than a frame may be, not sent";
            } else {
                slot.handler = std::move(owned);
                if (slot.held.empty()) slot.endOffset = appendedLocked();
                slot.due = due;
                slot.deadline = deadline;
                armsHere = loop().isCurrentThread();
                if (!armsHere && due < askedDue_) {
                    askedDue_ = due;
                    // Still under the lock: the loop that reads may be another one, and this one over, as soon as that is free.
                    loop().post([self = std::static_pointer_cast<ClientConnection>(shared_from_this())] { self->expire(); });
                }
            }
        }
    }
    if (refusal != nullptr) {
        // NOLINTNEXTLINE(bugprone-use-after-move): it moves only where there is no refusal
        guarded("onError", [&] { owned->onError(Response::createErrorResponse(status, servicePath_ + ": " + refusal)); });
        return IKeloApi::UNDEFINED_REQUEST_HANDLE;
    }
    ++counters_.requestsSent;
    if (armsHere && due != Clock::time_point::max()) arm(due);
    commit();
    return toHandle(id);
}

void ClientConnection::cancel(void* handle) {
    Handler over;
    {
        const std::lock_guard lock{mutex_};
        if (deliveringLast_ == toId(handle)) deliveringLast_ = 0;
        Slot* const slot = findLocked(toId(handle));
        if (slot == nullptr || slot->cancelled) return;
        if (!isClosedLocked() && slot->held.empty()) wire::appendBare(outLocked(), wire::FrameType::cancel, slot->id);
        if (slot->delivering) {
            slot->cancelled = true;
        } else {
            over = releaseLocked(*slot);
            sendHeldLocked();
        }
    }
    commit();
}

std::size_t ClientConnection::pendingRequests() const {
    const std::lock_guard lock{mutex_};
    return oneShots_ + streams_ + held_.size();
}

const char* ClientConnection::handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) {
    if (header.type == wire::FrameType::hello) return handleHello(body);
    if (!ready_) return "an answer before the hello";
    hasAnswered_ = true;
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
        peer_.application = hello.application;
    }
    events_.ready(*this, hello);
    return nullptr;
}

void ClientConnection::deliverNext(std::uint64_t id) {
    IResponseHandler<Response>* handler = nullptr;
    {
        const std::lock_guard lock{mutex_};
        Slot* const slot = deliverableLocked(id);
        if (slot == nullptr) return;
        slot->delivering = true;
        slot->due = Clock::time_point::max();
        handler = slot->handler.get();
    }
    bool finished = true;  // also for a handler that throws
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

// A value with which the provider ends the request. The request is over before its handler is called, which then is the only one
// who can still end it: nothing needs to be looked up again afterwards.
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

// The request that a frame is about, null when it is late.
ClientConnection::Slot* ClientConnection::deliverableLocked(std::uint64_t id) noexcept {
    Slot* const slot = findLocked(id);
    if (slot != nullptr && !slot->delivering) return slot;
    ++counters_.lateFrames;
    return nullptr;
}

// Ends a request, and sends another one that had to wait for its end; then, without the lock, `settle`.
ClientConnection::Ended ClientConnection::endLocked(Slot& slot) noexcept {
    Ended ended{releaseLocked(slot)};
    ended.sends = sendHeldLocked();
    ended.wasLast = oneShots_ + streams_ == 0 && askedDue_ == Clock::time_point::max();
    return ended;
}

void ClientConnection::settle(const Ended& ended) {
    if (ended.wasLast && timer_) timer_->disarm();
    if (ended.sends) commit();
}

// For a handler that threw: whoever waits behind it would wait for ever.
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
    struct Lost {
        std::uint64_t id;
        Handler handler;
        bool sent;
    };
    std::vector<Lost> ended;
    {
        std::unique_lock lock{mutex_};
        const std::uint64_t taken = takenLocked(lock);
        for (Slot& slot : slots_) {
            if (slot.id == 0) continue;
            if (slot.delivering) {
                slot.lost = true;
                continue;
            }
            const std::uint64_t id = slot.id;
            const bool sent = slot.endOffset <= taken;
            ended.push_back({id, releaseLocked(slot), sent});
        }
    }
    // In the order in which they were asked.
    std::sort(ended.begin(), ended.end(), [](const Lost& a, const Lost& b) { return a.id >> indexBits < b.id >> indexBits; });
    counters_.endedByLoss += ended.size();
    for (Lost& request : ended) {
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
    struct Late {
        Handler handler;
        std::chrono::milliseconds deadline;
        bool sent;
    };
    std::vector<Late> ended;
    auto next = Clock::time_point::max();
    const auto now = Clock::now();
    {
        std::unique_lock lock{mutex_};
        // Asked for on a loop that has stopped reading since: the one that reads now has looked when it began to.
        if (isClosedLocked() || !loop().isCurrentThread()) return;
        const std::uint64_t taken = takenLocked(lock);
        for (Slot& slot : slots_) {
            if (slot.id == 0 || slot.delivering) continue;
            if (slot.due > now) {
                next = std::min(next, slot.due);
                continue;
            }
            const bool sent = slot.endOffset <= taken;
            if (slot.held.empty()) wire::appendBare(outLocked(), wire::FrameType::cancel, slot.id);
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
    for (Late& request : ended) {
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

ClientConnection::Slot& ClientConnection::acquireLocked(bool oneShot) {
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
    slot.oneShot = oneShot;
    ++(oneShot ? oneShots_ : streams_);
    return slot;
}

// Takes the slot's frame, which begins at `begin` of what was appended, back until there is room for it.
void ClientConnection::holdLocked(Slot& slot, std::size_t begin) {
    auto& out = outLocked();
    const auto appended = out.bytes().subspan(begin);
    std::vector<std::uint8_t> frame(appended.begin(), appended.end());
    held_.push_back(slot.id);
    out.truncate(begin);
    slot.held.swap(frame);
    slot.endOffset = notSent;
    --oneShots_;
    heldBytes_ += slot.held.size();
    ++counters_.requestsHeld;
}

// Without memory for it the connection ends, as for anything else: but not the request whose end makes the room.
bool ClientConnection::sendHeldLocked() noexcept {
    bool any = false;
    while (!held_.empty() && oneShots_ < limits_.oneShotRequests && !isClosedLocked()) {
        Slot& slot = *findLocked(held_.front());
        try {
            outLocked().write(std::span<const std::uint8_t>{slot.held});
        } catch (const std::exception&) {
            shutDown();
            break;
        }
        held_.pop_front();
        heldBytes_ -= slot.held.size();
        slot.held = {};
        slot.endOffset = appendedLocked();
        ++oneShots_;
        any = true;
    }
    return any;
}

ClientConnection::Slot* ClientConnection::findLocked(std::uint64_t id) noexcept {
    const std::size_t index = id & ((1U << indexBits) - 1U);
    return id != 0 && index < slots_.size() && slots_[index].id == id ? &slots_[index] : nullptr;
}

ClientConnection::Handler ClientConnection::releaseLocked(Slot& slot) {
    free_.push_back(static_cast<std::uint32_t>(slot.id & ((1U << indexBits) - 1U)));
    if (slot.held.empty()) {
        --(slot.oneShot ? oneShots_ : streams_);
    } else {
        heldBytes_ -= slot.held.size();
        std::erase(held_, slot.id);
    }
    Handler handler = std::move(slot.handler);
    slot = Slot{};
    return handler;
}

}  // namespace kelo::net
