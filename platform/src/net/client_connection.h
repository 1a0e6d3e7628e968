// The consumer's end of a connection: requests out, answers to their handlers.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

    std::size_t pendingRequests() const;
    // Whether the provider has said anything about a request. Thread: the one that reads, or any when the connection is over.
    bool hasAnswered() const noexcept { return hasAnswered_; }

private:
    using Handler = std::unique_ptr<IResponseHandler<Response>>;
    struct Slot {
        std::uint64_t id = 0;  // 0: free
        Handler handler;
        Clock::time_point due = Clock::time_point::max();  // of the first answer
        std::uint64_t endOffset = 0;                       // in the bytes appended: where the request's frame ends
        std::chrono::milliseconds deadline{0};             // as asked for, for the error's text
        std::vector<std::uint8_t> held;                    // its frame, while there is no room for it
        bool oneShot = false;
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

    Slot& acquireLocked(bool oneShot);
    void holdLocked(Slot& slot, std::size_t begin);
    // Sends requests that were held, as far as there is room; whether there is something to commit.
    bool sendHeldLocked() noexcept;
    Slot* findLocked(std::uint64_t id) noexcept;
    Handler releaseLocked(Slot& slot);

    const std::string servicePath_;
    Events events_;
    Response response_;  // of the loop's thread alone; reused, its payload borrows from the frame
    wire::LastFields responseFields_;

    // Guarded by mutex_:
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::uint32_t oneShots_ = 0;  // sent
    std::uint32_t streams_ = 0;
    std::deque<std::uint64_t> held_;  // the ids of one-shot requests that wait for room, oldest first
    std::size_t heldBytes_ = 0;
    std::uint64_t deliveringLast_ = 0;  // the request of which the handler has its last value just now; 0 if cancelled meanwhile
    bool ready_ = false;
    bool hasAnswered_ = false;                               // of the thread that reads
    Clock::time_point askedDue_ = Clock::time_point::max();  // armed, or about to be, for requests of other threads

    // Of the loop's thread alone:
    std::optional<Timer> timer_;
};

}  // namespace kelo::net
