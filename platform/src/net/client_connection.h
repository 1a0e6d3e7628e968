// The consumer's end of a connection: sends requests and passes the answers to their handlers.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kelo/account.h"
#include "kelo/kelo_api.h"
#include "net/frame_stream.h"

namespace kelo::net {

// Thread: any for `request` and `cancel`; handlers are called on the loop that reads.
class ClientConnection final : public FrameStream {
public:
    struct Events {
        // The provider's hello has arrived. Thread: the loop that the connection was started on.
        std::function<void(ClientConnection&, const wire::Hello&)> ready;
        // The connection is over and all its requests have ended. Thread: the loop that reads.
        std::function<void(ClientConnection&, const char* why)> closed;
    };

    ClientConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters, std::string servicePath,
                     Events events);

    // Sends the hello. Call after `start`, on the loop's thread.
    void sayHello(std::string_view application);

    // As IKeloApi::request. An answer that is known at once is delivered before this returns.
    void* request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler, RequestLimits requestLimits);
    void cancel(void* handle);

    // What is in progress at a moment. Thread: any (a value).
    struct Usage {
        std::size_t requests = 0;  // of both kinds, including held ones
        std::size_t streams = 0;
        std::size_t held = 0;
        std::size_t queuedBytes = 0;
    };
    Usage usage() const;
    // Whether the provider has ever answered a request. Thread: the one that reads; any when the connection is over.
    bool hasAnswered() const noexcept { return hasAnswered_; }

private:
    using Handler = std::unique_ptr<IResponseHandler<Response>>;
    // What one account has on this connection; the process's own requests have an account too. Accounts with held requests form a
    // ring.
    struct Share {
        std::shared_ptr<Account> account;  // null: the process's own
        std::uint32_t streams = 0;
        std::size_t expected = 0;  // size of its next first answer, estimated from the last ones
        std::size_t awaited = 0;   // expected sizes of all first answers that are still to come
        std::uint32_t held = 0;
        std::size_t heldBytes = 0;
        std::uint32_t firstHeld = 0;  // a slot; valid if any are held, in the order of the requests
        std::uint32_t lastHeld = 0;
        Share* before = nullptr;
        Share* after = nullptr;

        uid_t uid() const noexcept { return account ? account->uid() : static_cast<uid_t>(-1); }
        FairShare::For kind() const noexcept { return account ? FairShare::For::client : FairShare::For::ourselves; }
        bool isIdle() const noexcept { return awaited + streams + held == 0; }
    };
    struct Slot {
        std::uint64_t id = 0;  // 0: free
        Share* share = nullptr;
        Handler handler;
        Clock::time_point due = Clock::time_point::max();  // of the first answer
        std::chrono::milliseconds deadline{0};             // as the caller gave it, for the error's text
        std::vector<std::uint8_t> held;                    // its frame, until there is room for it
        std::size_t awaited = 0;                           // expected size of its first answer, from sending to that answer
        std::uint32_t heldBefore = 0;                      // its neighbours among the held slots of the share
        std::uint32_t heldAfter = 0;
        bool oneShot = false;
        bool unsent = false;      // the kernel lacks bytes of it; known only when it ends
        bool delivering = false;  // its handler is in onNext; meanwhile it may become
        bool cancelled = false;   // - cancelled, or
        bool lost = false;        // - lost with the connection
    };

    const char* handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) override;
    void handleClosed(const char* why) override;
    bool pausesReading() const noexcept override { return false; }
    void handleLeavingLocked() override;
    void handleArrived() override;
    const char* handleHello(std::span<const std::uint8_t> body);
    void deliverNext(std::uint64_t id);
    void deliverLast(std::uint64_t id);
    template <class Deliver>
    void deliverTerminal(std::uint64_t id, Deliver deliver);
    // A request that has ended, and what this requires.
    struct Ended {
        Handler handler;
        bool sends = false;    // other requests were appended
        bool wasLast = false;  // there is no deadline left to wait for
    };
    Slot* deliverableLocked(std::uint64_t id) noexcept;
    Ended endLocked(Slot& slot) noexcept;
    void settle(const Ended& ended);
    void fail(IResponseHandler<Response>& handler) const;
    Response lossResponse(bool sent) const;
    // Ends the requests whose deadline has passed, and arms for the next. Thread: the loop's.
    void expire();
    void arm(Clock::time_point due);

    void handleDrainedLocked() override { sendHeldLocked(); }

    Share& shareLocked(Account* account);
    Slot& acquireLocked(Share& share, bool oneShot);
    bool mustWaitLocked(const Share& share) const noexcept;
    bool hasRoomLocked(const Share& share) const noexcept;
    void awaitLocked(Slot& slot, std::size_t bytes) noexcept;
    void noteAnswerLocked(Slot& slot) noexcept;
    bool holdLocked(Slot& slot, std::size_t begin);
    void chargeHeld(Share& share, std::uint32_t held, std::size_t bytes) noexcept;
    void unholdLocked(Slot& slot) noexcept;
    // Sends held requests as far as there is room. Returns whether something must be committed.
    bool sendHeldLocked() noexcept;
    Share& nextShare() noexcept;
    Slot* findLocked(std::uint64_t id) noexcept;
    Handler releaseLocked(Slot& slot);

    const std::string servicePath_;
    Events events_;
    // The least and most that an answer counts for. At least so much that there are never more requests in flight than a provider
    // accepts; at most so much that no request has to wait until it is the only one.
    const std::size_t leastExpected_;
    const std::size_t mostExpected_;
    Response response_;  // only for the loop's thread; reused, its payload borrows from the frame
    wire::LastFields responseFields_;
    std::size_t answerSize_ = 0;  // of the frame that is being handled

    // Guarded by mutex_:
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::uint32_t streams_ = 0;
    std::unordered_map<const Account*, Share> accounts_;
    Share* lastShare_ = nullptr;  // the one looked up last
    Share* turn_ = nullptr;       // of the shares with held requests, the one whose turn is next
    std::size_t waiting_ = 0;     // the number of these shares
    uid_t lastUser_ = 0;          // whose held request was sent last
    bool queueWasFull_ = false;   // when a request was last held, or held ones were last sent
    FairShare awaitedShares_;
    FairShare streamShares_;
    FairShare heldShares_;
    FairShare heldByteShares_;
    std::uint64_t deliveringLast_ = 0;  // the request whose last value is being delivered; 0 if it was cancelled meanwhile
    bool ready_ = false;
    bool hasAnswered_ = false;                               // only for the thread that reads
    Clock::time_point askedDue_ = Clock::time_point::max();  // armed, or about to be armed, for requests from other threads

    // Only for the loop's thread:
    std::optional<Timer> timer_;
};

}  // namespace kelo::net
