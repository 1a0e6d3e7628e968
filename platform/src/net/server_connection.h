// The provider's end of a connection: requests in, their responders out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kelo/account.h"
#include "kelo/composed_service.h"
#include "kelo/resource_handler.h"
#include "net/frame_stream.h"
#include "net/kept_values.h"
#include "util/block_pool.h"
#include "util/id_map.h"

namespace kelo::net {

// Thread: any for answering; requests are handled on the loop that reads.
class ServerConnection final : public FrameStream {
public:
    // What the connection serves, and whom it tells; outlives the connection.
    struct Service {
        std::string path;
        std::string application;
        std::string mimeTypes;  // in order of preference, separated by commas
        SimpleComposedKeloService* handlers = nullptr;
        std::shared_ptr<Shares> shares;  // of the process, for all its clients
        // Answers what the runtime itself serves below "/$platform". Thread: the loop that reads.
        std::function<void(const Request&, IResponder&)> platform;
        // Thread: the loop that reads.
        std::function<void(ServerConnection&)> closed;
    };

    ServerConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                     std::shared_ptr<const Service> service);

    // Begins to wait for the hello. After `start`, on the loop's thread.
    void expectHello();

    // Whether it has said hello. Thread: the loop that reads, as for the next two.
    bool hasGreeted() const noexcept { return ready_; }
    // One that is reserved is for questions about the process itself; anything else is refused until it is admitted.
    bool isReserved() const noexcept { return isReserved_; }
    void setReserved(bool isReserved) noexcept { isReserved_ = isReserved; }

    // What the client has at a moment. Thread: any (a value).
    struct Usage {
        Peer peer;
        std::size_t requests = 0;  // one-shot
        std::size_t streams = 0;
        std::size_t queuedBytes = 0;
        std::size_t keptBytes = 0;
        std::size_t heldRequests = 0;
        std::size_t heldBytes = 0;
    };
    Usage usage() const;
    Account& account() const noexcept { return *account_; }

    // What became of a value.
    enum class Taken : std::uint8_t { andMoreWanted, asTheLast, unwanted };
    // Answers request `id`; for its responder, as the next two.
    Taken next(std::uint64_t id, const Response& response);
    void terminate(std::uint64_t id, wire::FrameType type, const Response* response);
    // The responder of request `id` is gone; unless it was answered, the client hears so.
    void abandon(std::uint64_t id);

private:
    // A request that has a responder, or whose last words have not been written.
    struct Open : util::Pooled {
        IResourceHandler* handler = nullptr;
        void* handle = nullptr;
        bool oneShot = false;
        bool cancelled = false;
        bool answered = false;  // a stream: it has had a value
    };

    const char* handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) override;
    void handleClosed(const char* why) override;
    bool handleInputEnded() override;
    bool owesNothingLocked() const override { return owed_ == 0; }
    bool pausesReading() const noexcept override { return true; }
    void handleDrainedLocked() override;
    const char* handleHello(std::span<const std::uint8_t> body);
    const char* handleRequest(const wire::FrameHeader& header, std::span<const std::uint8_t> body);
    void handleCancel(std::uint64_t id);
    void dispatch(std::uint64_t id);

    Open* answerableLocked(std::uint64_t id);
    void noteDispatchedLocked();
    const char* refusalLocked() const;
    bool keepLocked(std::uint64_t id, const Response& response);
    void dropKeptLocked(std::uint64_t id);
    void followKeptLocked(std::uint64_t id, std::size_t begin);
    void refuseLocked(std::uint64_t id, std::size_t begin);
    bool appendAnswerLocked(util::ByteBufferWriter& out, wire::FrameType type, std::uint8_t flags, std::uint64_t id,
                            const Response& response);
    void eraseLocked(std::uint64_t id);

    const std::shared_ptr<const Service> service_;
    const std::shared_ptr<Account> account_;
    // Of the loop's thread alone:
    std::string peerClientId_;  // the trace id of a peer whose requests name none
    Request request_;           // reused, its payload borrows from the frame
    wire::LastFields requestFields_;
    std::optional<Timer> patience_;  // with a client that has not said hello, or that waits for its last answers
    bool isReserved_ = false;
    // The request that was handed to its handler last, with what it is to be cancelled by; not yet in the table.
    struct Dispatched {
        std::uint64_t id = 0;
        IResourceHandler* handler = nullptr;
        void* handle = nullptr;
    } dispatched_;

    // Guarded by mutex_:
    util::IdMap<Open> requests_;
    KeptValues kept_;
    std::uint32_t oneShots_ = 0;
    std::uint32_t streams_ = 0;
    std::uint32_t owed_ = 0;  // answers that a client which has ended its side is still to get
    bool ready_ = false;
};

}  // namespace kelo::net
