// Where the answers of requests arrive, and the command waits for them.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "deadline.h"
#include "kelo/response_handler.h"

namespace hmxctl {

// Thread: any (a value).
struct Event {
    enum class Kind : unsigned char { next, error, completed };
    std::size_t source = 0;  // which of the requests
    Kind kind = Kind::next;
    kelo::Response response;
};

// Requests' handlers put events in on the runtime's threads, the command takes them out on its own.
// Thread: any; `take` on one.
class Inbox {
public:
    Inbox();
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // If many events wait, a value replaces the one of the same request that still waits.
    void put(Event event);
    // The next event in order of arrival; nothing at the deadline (none: waits for ever). `output`, if not negative, is a
    // descriptor whose reader is watched meanwhile: throws OutputClosed when it goes away.
    std::optional<Event> take(const std::optional<Deadline>& deadline, int output = -1);

private:
    std::mutex mutex_;
    std::deque<Event> events_;
    int wakeUp_;  // an eventfd, so that answers and the output's reader can be waited for together
};

// A handler that puts what it hears into `inbox` as coming from `source`.
[[nodiscard]] std::unique_ptr<kelo::IResponseHandler<kelo::Response>> makeHandler(std::shared_ptr<Inbox> inbox,
                                                                                  std::size_t source, bool oneShot);

}  // namespace hmxctl
