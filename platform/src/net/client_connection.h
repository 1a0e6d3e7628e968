// The consumer's end of a connection: requests out, answers to their handlers.
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
        // The provider said hello. Thread: the loop that the connection was started on.
        std::function<void(ClientConnection&, const wire::Hello&)> ready;
        // The connection is over and all its requests have ended. Thread: the loop that reads.
        std::function<void(ClientConnection&, const char* why)> closed;
    };

    ClientConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters, std::string servicePath,
                     Events events);

    // Says hello. After `start`, on the loop's thread.
    void sayHello(std::string_view application);

    // As IKeloApi::request. An answer known at once is delivered before this returns.
    void* request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler, RequestLimits requestLimits);
    void cancel(void* handle);

    // What is under way, at a moment. Thread: any (a value).
    struct Usage {
        std::size_t requests = 0;  // of both kinds, held ones included
        std::size_t streams = 0;
        std::size_t held = 0;
        std::size_t queuedBytes = 0;
    };
    Usage usage() const;
    // Whether the provider has said anything about a request. Thread: the one that reads, or any when the connection is over.
    bool hasAnswered() const noexcept { return hasAnswered_; }

private:
    using Handler = std::unique_ptr<IResponseHandler<Response>>;
    // What one account has on this connection; the process's own requests have one too. While requests of it are held, it stands
    // in a ring with the others of which some are.
    struct Share {
        std::shared_ptr<Account> account;  // null: the process's own
        std::uint32_t streams = 0;
        std::size_t expected = 0;  // size of its next first answer, by the last ones
        std::size_t awaited = 0;   // the sizes of all that are still to come, as expected
        std::uint32_t held = 0;
        std::size_t heldBytes = 0;
        std::uint32_t firstHeld = 0;  // slots, if any are held, in the order of asking
        std::uint32_t lastHeld = 0;
        Share* before = nullptr;
        Share* after = nullptr;

        FairShare::For kind() const noexcept { return account ? FairShare::For::client : FairShare::For::ourselves; }
        bool isIdle() const noexcept { return awaited + streams + held == 0; }
    };
    struct Slot {
        std::uint64_t id = 0;  // 0: free
        Share* share = nullptr;
        Handler handler;
        Clock::time_point due = Clock::time_point::max();  // of the first answer
        std::chrono::milliseconds deadline{0};             // as asked for, for the error's text
        std::vector<std::uint8_t> held;                    // its frame, while there is no room for it
        std::size_t awaited = 0;                           // expected size of its first answer, from sending to that answer
        std::uint32_t heldBefore = 0;                      // the slots of the share's that were asked for before it and after it
        std::uint32_t heldAfter = 0;
        bool oneShot = false;
        bool unsent = false;      // the kernel lacks bytes of it; known at its end only
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
    // A request that is over, and what its end calls for.
    struct Ended {
        Handler handler;
        bool sends = false;    // something was appended
        bool wasLast = false;  // no deadline is left to wait for
    };
    Slot* deliverableLocked(std::uint64_t id) noexcept;
    Ended endLocked(Slot& slot) noexcept;
    void settle(const Ended& ended);
    void fail(IResponseHandler<Response>& handler) const;
    Response lossResponse(bool sent) const;
    // Ends the requests whose deadline has passed and arms for the next. Thread: the loop's.
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
    // Sends requests that were held, as far as there is room; whether there is something to commit.
    bool sendHeldLocked() noexcept;
    Slot* findLocked(std::uint64_t id) noexcept;
    Handler releaseLocked(Slot& slot);

    const std::string servicePath_;
    Events events_;
    // Of an answer: so small that there are never more requests in flight than a provider takes, and so large that one has not to
    // wait until it is alone.
    const std::size_t leastExpected_;
    const std::size_t mostExpected_;
    Response response_;  // of the loop's thread alone; reused, its payload borrows from the frame
    wire::LastFields responseFields_;
    std::size_t answerSize_ = 0;  // of the frame that is being handled

    // Guarded by mutex_:
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::uint32_t streams_ = 0;
    std::unordered_map<const Account*, Share> accounts_;
    Share* lastShare_ = nullptr;  // the one that was looked up last
    Share* turn_ = nullptr;       // of those of which requests are held, the one whose turn is next
    std::size_t waiting_ = 0;     // how many those are
    bool queueWasFull_ = false;   // when a request was held last, or held ones were sent
    FairShare awaitedShares_;
    FairShare streamShares_;
    FairShare heldShares_;
    FairShare heldByteShares_;
    std::uint64_t deliveringLast_ = 0;  // the request of which the handler has its last value just now; 0 if cancelled meanwhile
    bool ready_ = false;
    bool hasAnswered_ = false;                               // of the thread that reads
    Clock::time_point askedDue_ = Clock::time_point::max();  // armed, or about to be, for requests of other threads

    // Of the loop's thread alone:
    std::optional<Timer> timer_;
};

}  // namespace kelo::net
