#include "hmx/client/inbox.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

namespace hmx::client {
namespace {

// How many intermediate states of its requests a reader that is slow still gets to see.
constexpr std::size_t mostKept = 16;

}  // namespace

// What readers and handlers share. Thread: any.
struct Inbox::Mail {
    explicit Mail(Signal::Raiser raiser) : arrival{std::move(raiser)} {}

    void put(Event event) {
        {
            const std::lock_guard lock{mutex};
            if (isClosed) return;
            const auto last = std::find_if(events.rbegin(), events.rend(), [&](const Event& each) {
                return each.source == event.source && each.kind == Event::Kind::next;
            });
            if (event.kind == Event::Kind::next && events.size() >= mostKept && last != events.rend()) {
                *last = std::move(event);
            } else {
                events.push_back(std::move(event));
            }
        }
        arrival.raise();
    }

    const Signal::Raiser arrival;
    std::mutex mutex;
    std::deque<Event> events;
    bool isClosed = false;
};

// Thread: the runtime's.
class Inbox::Handler final : public kelo::IResponseHandler<kelo::Response> {
public:
    Handler(std::shared_ptr<Mail> mail, std::size_t source, bool oneShot)
        : mail_{std::move(mail)}, source_{source}, oneShot_{oneShot} {}

    bool onNext(const kelo::Response& response) override {
        mail_->put({source_, Event::Kind::next, response});
        return oneShot_;
    }
    void onError(const kelo::Response& response) override { mail_->put({source_, Event::Kind::error, response}); }
    void onCompleted() override { mail_->put({source_, Event::Kind::completed, {}}); }
    bool isOneShot() const override { return oneShot_; }

private:
    std::shared_ptr<Mail> mail_;
    std::size_t source_;
    bool oneShot_;
};

Inbox::Inbox(Dispatcher& dispatcher) : arrival_{dispatcher}, mail_{std::make_shared<Mail>(arrival_.raiser())} {}

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
