// A resource, an element or a display's touch regions as they change, through losses and returns of their source.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hmx/client/changes.h"
#include "hmx/client/client.h"
#include "hmx/client/elements.h"
#include "hmx/client/inbox.h"

namespace hmx::client {

// The state that is now, and what became of the one before. Thread: any (a value).
struct Update {
    enum class Kind : std::uint8_t {
        snapshot,  // the first state, or the first one after a loss
        changed,   // another state; `changes` may be empty: the source has said the same again
        missing,   // the element is not there (any more); `elements` is empty
        lost,      // no connection to the source; the last state stands as far as anybody knows
        ended,     // the service has ended the request, without an error; it is asked again soon
        failed     // will not mend itself: refused, or unreadable. The last update
    };
    Kind kind = Kind::snapshot;
    bool isBack = false;                   // a snapshot or `missing` that ends a loss
    bool isRepeated = false;               // `lost` or `missing` as it was before, perhaps for another reason
    std::vector<Json> elements{};          // all there is now; of `lost`, `ended` and `failed` none
    std::vector<ElementChange> changes{};  // what differs from the state that was handed out before; of a snapshot none
    kelo::Payload payload{};               // the document that this came with, as it was sent
    std::optional<Error> error{};          // why, for all but `snapshot` and `changed`
};

// What is followed. Thread: any (a value).
struct Followed {
    Target target{};        // a resource or an element of /hmx
    Json parameters{};      // of the retrieve; an object or null
    std::string display{};  // of a popup that is named without one, or ""
    std::string surface{};  // instead: the display whose touch regions are followed
};

// Opens the requests, and opens them again when they fail: at once the first time, then more and more rarely, a few times a
// second at least. A service that ends a request after its answer is asked again once a second. Popups without a display are
// those of all displays, also of one that comes later. Of states that nobody takes, the newest sixteen at most are kept.
// A resource; begins with the next dispatch. Thread: the dispatcher's.
class Subscription {
public:
    // `client` outlives it. `ready`, which may be null, is called from `dispatch` when there is something to take; it may destroy
    // the subscription.
    Subscription(Client& client, Followed followed, std::function<void()> ready = nullptr);
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription();

    // The next thing that has happened; nothing if there is none now. Never blocks.
    std::optional<Update> tryNext();
    // The next thing to happen; nothing at the deadline.
    Task<std::optional<Update>> next(std::optional<Deadline> until = {});

    // Attempts to open the requests that begin from now on end at that time at the latest, besides their own limit of two
    // seconds.
    void limitAttempts(std::optional<Deadline> until);

private:
    class Follower;
    std::unique_ptr<Follower> follower_;
};

}  // namespace hmx::client
