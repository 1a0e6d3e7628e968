// Requests that are kept open: each is opened again when it ends, for as long as it is wanted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "hmx/client/client.h"
#include "hmx/client/inbox.h"
#include "hmx/client/service.h"

namespace hmx::client {

// What became of a retrieve. Thread: any (a value).
struct Heard {
    enum class Kind : std::uint8_t {
        answer,   // a whole answer
        missing,  // what is asked for is not there
        lost,     // no connection to the source
        ended,    // the service has ended the request without an error
        failed    // refused
    };
    std::size_t which = 0;  // the number that `follow` returned
    Kind kind = Kind::answer;
    Deadline::Clock::time_point at{};  // when it arrived
    kelo::Response response{};         // of an answer
    std::optional<Error> error{};      // for all else, why
};

// Whatever is followed is asked for again, at once the first time, then more and more rarely, a few times a second at least; what
// ends by itself, once a second. Of the answers that come faster than they are taken, the newest are kept. A resource; begins
// with the next dispatch. Thread: the dispatcher's.
class Retrieves {
public:
    // `client` outlives it. `heard` is called from `dispatch`; it may follow and leave, but not destroy this object. `keptBytes`:
    // see Inbox.
    Retrieves(Client& client, std::function<void(const Heard&)> heard, std::size_t keptBytes = 0);
    Retrieves(const Retrieves&) = delete;
    Retrieves& operator=(const Retrieves&) = delete;
    ~Retrieves();

    // Never 0, never the same twice.
    std::size_t follow(std::string service, Query query);
    // Of an answer that could not be read: it is asked for again as if it had failed.
    void askAgain(std::size_t which);
    // Nothing more is heard of it.
    void leave(std::size_t which);

private:
    class Followers;
    std::unique_ptr<Followers> followers_;
};

}  // namespace hmx::client
