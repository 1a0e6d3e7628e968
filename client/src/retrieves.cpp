// Each retrieve is a task that finds its service, opens the request, waits until it has ended, and begins anew after a pause.
// What the requests bring goes through one inbox, in the order of arrival. Each opening of a request has a number of its own, so
// what is left of a closed one is recognised. Who is told of something may leave that retrieve, so nothing of it is touched
// afterwards.

#include "hmx/client/retrieves.h"

#include <map>
#include <utility>

#include "backoff.h"

namespace hmx::client {
namespace {

using std::chrono::milliseconds;

// How much of what has arrived is looked at before anything else gets a turn.
constexpr int mostAtOnce = 64;

}  // namespace

class Retrieves::Followers {
public:
    Followers(Client& client, std::function<void(const Heard&)> heard, std::size_t keptBytes)
        : client_{client},
          heard_{std::move(heard)},
          begin_{client.dispatcher()},
          more_{client.dispatcher()},
          inbox_{client.dispatcher(), keptBytes} {
        inbox_.onArrival([this] { takeAll(); });
        more_.onRaised([this] { takeAll(); });
    }

    std::size_t follow(std::string service, Query query) {
        const std::size_t which = ++last_;
        auto follower = std::make_unique<Follower>(client_.dispatcher(), which, std::move(service), std::move(query));
        follower->life = client_.start(live(*follower), [](const Outcome<void>&) {});
        followers_.emplace(which, std::move(follower));
        begin_.raiseHere();
        return which;
    }

    void leave(std::size_t which) {
        const auto found = followers_.find(which);
        if (found == followers_.end()) return;
        open_.erase(found->second->number);
        followers_.erase(found);
    }

    void askAgain(std::size_t which) {
        const auto found = followers_.find(which);
        if (found != followers_.end() && found->second->number != 0) close(*found->second, backoff::next(found->second->pause));
    }

private:
    struct Follower {
        Follower(Dispatcher& dispatcher, std::size_t itsWhich, std::string itsService, Query itsQuery)
            : which{itsWhich}, path{std::move(itsService)}, query{std::move(itsQuery)}, closed{dispatcher} {}

        std::size_t which;
        std::string path;
        Query query;
        Signal closed;
        std::optional<Service> service;
        Stream stream;
        std::size_t number = 0;  // of the open request; 0: none is open
        milliseconds pause{0};
        Operation life;  // ends first
    };

    Task<> live(Follower& follower) {
        co_await begin_.raised();
        for (;;) {
            std::optional<Error> failure;
            try {
                follower.service.emplace(co_await client_.service(follower.path, Deadline{backoff::attempt}));
                follower.number = ++lastNumber_;
                open_[follower.number] = &follower;
                follower.stream = follower.service->open(follower.query, inbox_, follower.number);
            } catch (const Error& error) {
                failure = error;
            }
            // Not told from within the task, which the one who is told may end.
            if (failure) {
                failures_.emplace_back(follower.which, *failure);
                more_.raiseHere();
                follower.pause = backoff::next(follower.pause);
            }
            while (follower.number != 0) co_await follower.closed.raised();
            co_await client_.dispatcher().pause(follower.pause);
        }
    }

    void close(Follower& follower, milliseconds pause) {
        open_.erase(follower.number);
        follower.number = 0;
        follower.stream = {};
        follower.pause = pause;
        follower.closed.raiseHere();
    }

    void takeAll() {
        for (const auto& [which, error] : std::exchange(failures_, {})) {
            if (followers_.contains(which)) heard_(failed(which, Deadline::Clock::now(), error));
        }
        for (int left = mostAtOnce; left > 0; --left) {
            const std::optional<Event> event = inbox_.tryTake();
            if (!event) return;
            take(*event);
        }
        more_.raiser().raise();  // in the next dispatch, so that others get their turn
    }

    void take(const Event& event) {
        const auto found = open_.find(event.source);
        if (found == open_.end()) return;
        Follower& follower = *found->second;
        const std::optional<Error> error = follower.service->errorOf(follower.query, event);
        if (!error) {
            follower.pause = milliseconds{0};
            heard_({.which = follower.which, .kind = Heard::Kind::answer, .at = event.at, .response = event.response});
        } else if (event.kind == Event::Kind::completed) {
            close(follower, backoff::afterEnd);
            heard_({.which = follower.which, .kind = Heard::Kind::ended, .at = event.at, .error = error});
        } else {
            close(follower, backoff::next(follower.pause));
            heard_(failed(follower.which, event.at, *error));
        }
    }

    static Heard failed(std::size_t which, Deadline::Clock::time_point at, const Error& error) {
        const Heard::Kind kind = error.isNotFound()  ? Heard::Kind::missing
                                 : error.isPassing() ? Heard::Kind::lost
                                                     : Heard::Kind::failed;
        return {.which = which, .kind = kind, .at = at, .error = error};
    }

    Client& client_;
    std::function<void(const Heard&)> heard_;
    Signal begin_;
    Signal more_;
    Inbox inbox_;
    std::vector<std::pair<std::size_t, Error>> failures_;  // to be told
    std::size_t last_ = 0;
    std::size_t lastNumber_ = 0;
    std::map<std::size_t, Follower*> open_;  // by the numbers of their requests
    std::map<std::size_t, std::unique_ptr<Follower>> followers_;
};

Retrieves::Retrieves(Client& client, std::function<void(const Heard&)> heard, std::size_t keptBytes)
    : followers_{std::make_unique<Followers>(client, std::move(heard), keptBytes)} {}

Retrieves::~Retrieves() = default;

std::size_t Retrieves::follow(std::string service, Query query) {
    return followers_->follow(std::move(service), std::move(query));
}

void Retrieves::askAgain(std::size_t which) {
    followers_->askAgain(which);
}

void Retrieves::leave(std::size_t which) {
    followers_->leave(which);
}

}  // namespace hmx::client
