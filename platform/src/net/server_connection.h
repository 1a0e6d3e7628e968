// The provider's end of a connection: receives requests and sends their responders' answers.
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
#include "policy/access_table.h"
#include "util/block_pool.h"
#include "util/id_map.h"

namespace kelo::net {

// Thread: any for answers; requests are handled on the loop that reads.
class ServerConnection final : public FrameStream {
public:
    // What the connection serves, and whom it informs. Must outlive the connection.
    struct Service {
        std::string path;
        std::string application;
        std::string mimeTypes;  // in order of preference, separated by commas
        SimpleComposedKeloService* handlers = nullptr;
        std::shared_ptr<Shares> shares;  // of the process, for all its clients
        // Answers the requests below "/$platform", which the runtime itself serves. Thread: the loop that reads.
        std::function<void(const Request&, IResponder&)> platform;
        // Thread: the loop that reads.
        std::function<void(ServerConnection&)> closed;
    };

    ServerConnection(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters,
                     std::shared_ptr<const Service> service);

    // Starts to wait for the hello. Call after `start`, on the loop's thread.
    void expectHello();
    // What the client may do from now on; streams that it may not have any more are ended. Thread: the loop that reads.
    // `user`, `turns`: which user the client is charged to, and who takes turns with others; null: neither.
    void setPolicy(std::shared_ptr<const policy::Policy> policy, const std::shared_ptr<User>& user, Turns* turns);

    // Whether the client has sent its hello. Thread: the loop that reads, as for the next two.
    bool hasGreeted() const noexcept { return ready_; }
    // A reserved connection is for questions about the process itself; other requests are refused until it is admitted.
    bool isReserved() const noexcept { return isReserved_; }
    void setReserved(bool isReserved) noexcept { isReserved_ = isReserved; }

    // What the client has in progress at a moment. Thread: any (a value).
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

    // The result of a value.
    enum class Taken : std::uint8_t { andMoreWanted, asTheLast, unwanted };
    // Answers request `id`; for its responder, as are the next two.
    Taken next(std::uint64_t id, const Response& response);
    void terminate(std::uint64_t id, wire::FrameType type, const Response* response);
    // The responder of request `id` is gone. If the request was not answered, it ends with an error.
    void abandon(std::uint64_t id);

private:
    // What a stream shows. Kept because a new policy may forbid it.
    struct Asked {
        std::string command;
        std::string path;
    };
    // A request that has a responder, or whose last answer has not been written.
    struct Open : util::Pooled {
        std::unique_ptr<const Asked> asked;  // null: one-shot
        IResourceHandler* handler = nullptr;
        void* handle = nullptr;
        bool oneShot = false;
        bool cancelled = false;
        bool answered = false;  // a stream that has had a value
        bool inHand = false;    // counted as such for the client's user
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
    bool isForbidden(const std::string& command, const std::string& path);
    void endForbiddenStreams();
    void chargeTo(const std::shared_ptr<User>& user, Turns* turns);
    SharedLimit::Amount* requestsOfUser() const noexcept { return user_ ? &user_->requests : nullptr; }
    UserLimit::Amount* streamsOfUser() const noexcept { return user_ ? &user_->streams : nullptr; }
    void addStreamLocked() noexcept;
    void removeStreamLocked() noexcept;

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
    // Only for the loop's thread:
    std::string peerClientId_;  // the trace id of a peer whose requests have none
    Request request_;           // reused; its payload borrows from the frame
    wire::LastFields requestFields_;
    std::optional<Timer> patience_;                // for a client's hello, or for its reading of the last answers
    std::unique_ptr<policy::AccessTable> access_;  // null: everything is allowed
    std::string forbidden_;                        // what was forbidden last, and why
    bool isReserved_ = false;
    // The last request that was passed to its handler, and the handle to cancel it with; not in the table yet.
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
    std::uint32_t owed_ = 0;  // answers that a client is still to get after it has ended its side
    bool ready_ = false;
};

}  // namespace kelo::net
