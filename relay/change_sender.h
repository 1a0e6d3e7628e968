// The importing side of changes: passes them to the origin, and the answers back.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "hmx/client/dispatcher.h"
#include "kelo/resource_handler.h"
#include "names.h"
#include "participant.h"

namespace hmxrelay {

// Gets the requests of a replica that would change something. A resource. Thread: the dispatcher's.
class ChangeSender final : public kelo::IResourceHandler {
public:
    explicit ChangeSender(hmx::client::Dispatcher& dispatcher, bool isReadOnly);
    ~ChangeSender() override;
    ChangeSender(const ChangeSender&) = delete;
    ChangeSender& operator=(const ChangeSender&) = delete;

    // From now on there is an origin to send to; only what `author` writes are answers. `publisher` and `subscriber` outlive the
    // connection.
    void connect(const Participant& participant, const Entity& publisher, const Entity& subscriber, const Author& author);
    // There is none: `why`, without the words that tell what became of a request.
    void disconnect(const std::string& why);

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override;
    void cancelRequest(void* handle) override;

private:
    struct Open {
        std::uint64_t number = 0;
        std::unique_ptr<kelo::IResponder> responder;
        hmx::client::Operation deadline;
    };
    struct Connection {
        Writer<hmxrelay_Request> requests;
        Reader<hmxrelay_Reply> replies;
        Author author{};
    };

    void takeReplies();
    bool send(std::uint64_t number, Ask kind, const kelo::Request& request);
    hmx::client::Task<> waitForAnswer();
    void expire(void* handle);
    std::unique_ptr<kelo::IResponder> take(void* handle);

    hmx::client::Dispatcher& dispatcher_;
    const bool isReadOnly_;
    const Bytes16 requester_;
    std::uint64_t last_ = 0;
    std::string why_{"the origin has not been seen yet"};
    hmx::client::Signal arrived_;
    std::optional<Connection> connection_;
    std::map<void*, Open> open_;
    std::map<std::uint64_t, void*> handles_;
};

}  // namespace hmxrelay
