#include "hmx/client/inbox.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

namespace hmx::client {
namespace {

// How many intermediate states of its requests a reader that is slow gets to see in any case.
constexpr std::size_t mostKept = 16;

}  // namespace

// What readers and handlers share. Thread: any.
struct Inbox::Mail {
    Mail(Signal::Raiser raiser, std::size_t itsRoom) : arrival{std::move(raiser)}, room{itsRoom} {}

    void put(Event event) {
        {
            const std::lock_guard lock{mutex};
            if (isClosed) return;
            event.at = Deadline::Clock::now();
            bytes += event.response.payload().bytes().size();
            if (Event* const passedOver = olderOf(event)) {
                bytes -= passedOver->response.payload().bytes().size();
                *passedOver = std::move(event);
            } else {
                events.push_back(std::move(event));
            }
        }
        arrival.raiseOrAnswer();
    }

    // The value that `event` replaces, because too many wait; null if it has room.
    Event* olderOf(const Event& event) {
        if (event.kind != Event::Kind::next || events.size() < mostKept || bytes < room) return nullptr;
        const auto last = std::find_if(events.rbegin(), events.rend(), [&](const Event& each) {
            return each.source == event.source && each.kind == Event::Kind::next;
        });
        return last == events.rend() ? nullptr : &*last;
    }

    const Signal::Raiser arrival;
    const std::size_t room;
    std::mutex mutex;
    std::deque<Event> events;
    std::size_t bytes = 0;  // of their payloads
    bool isClosed = false;
};

// Thread: the runtime's.
class Inbox::Handler final : public kelo::IResponseHandler<kelo::Response> {
public:
    Handler(std::shared_ptr<Mail> mail, std::size_t source, bool oneShot)
        : mail_{std::move(mail)}, source_{source}, oneShot_{oneShot} {}

    bool onNext(const kelo::Response& response) override {
        mail_->put({source_, Event::Kind::next, response, {}});
        return oneShot_;
    }
    void onError(const kelo::Response& response) override { mail_->put({source_, Event::Kind::error, response, {}}); }
    void onCompleted() override { mail_->put({source_, Event::Kind::completed, {}, {}}); }
    bool isOneShot() const override { return oneShot_; }

private:
    std::shared_ptr<Mail> mail_;
    std::size_t source_;
    bool oneShot_;
};

Inbox::Inbox(Dispatcher& dispatcher, std::size_t keptBytes)
    : arrival_{dispatcher}, mail_{std::make_shared<Mail>(arrival_.raiser(), keptBytes)} {}

Inbox::~Inbox() {
    const std::lock_guard lock{mail_->mutex};
    mail_->isClosed = true;
    mail_->events.clear();
}

std::unique_ptr<kelo::IResponseHandler<kelo::Response>> Inbox::makeHandler(std::size_t source, bool oneShot) const {
    return std::make_unique<Handler>(mail_, source, oneShot);
}

std::optional<Event> Inbox::tryTake() {
    const std::lock_guard lock{mail_->mutex};
    if (mail_->events.empty()) return {};
    Event event = std::move(mail_->events.front());
    mail_->events.pop_front();
    mail_->bytes -= event.response.payload().bytes().size();
    return event;
}

Task<std::optional<Event>> Inbox::take(std::optional<Deadline> until) {
    for (;;) {
        if (std::optional<Event> event = tryTake()) co_return event;
        if (until && until->passed()) co_return std::nullopt;
        co_await arrival_.raised(until);
    }
}

}  // namespace hmx::client
