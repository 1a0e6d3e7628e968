// The exporting side of changes: passes them to /hmx, and its answers back.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "hmx/client/client.h"
#include "hmx/client/inbox.h"
#include "names.h"
#include "participant.h"

namespace hmxrelay {

// A resource. Thread: the dispatcher's.
class ChangeDesk {
public:
    // What is given outlives it.
    ChangeDesk(hmx::client::Client& client, const Participant& participant, const Entity& publisher, const Entity& subscriber,
               std::string service, bool isReadOnly);
    ~ChangeDesk();
    ChangeDesk(const ChangeDesk&) = delete;
    ChangeDesk& operator=(const ChangeDesk&) = delete;

private:
    // A change is known by who wants it and its number.
    struct Name {
        Bytes16 requester{};
        std::uint64_t number = 0;
        friend auto operator<=>(const Name&, const Name&) = default;
    };
    struct Open {
        Name name;
        hmx::client::Stream stream;
    };
    struct Requester {
        std::uint64_t last = 0;  // number of a change; they come in ascending order
    };

    hmx::client::Task<> findService();
    void takeRequests();
    void takeAnswers();
    void ask(const Name& name, const hmxrelay_Request& request);
    void drop(const Bytes16& requester);
    void refuse(const Name& name, std::uint16_t status, const std::string& reason);
    void reply(const Name& name, Answer kind, const kelo::Response& response);

    hmx::client::Client& client_;
    const std::string path_;
    const bool isReadOnly_;
    kelo::IKeloApi* api_ = nullptr;  // null until the service was found for the first time
    hmx::client::Signal arrived_;
    Writer<hmxrelay_Reply> replies_;
    Reader<hmxrelay_Request> requests_;
    hmx::client::Inbox inbox_;
    std::map<Bytes16, Requester> requesters_;
    std::map<std::size_t, Open> open_;  // by the number that the inbox knows them by
    std::map<Name, std::size_t> numbers_;
    std::size_t last_ = 0;
    hmx::client::Operation search_;
};

}  // namespace hmxrelay
