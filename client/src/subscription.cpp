// The life of a subscription. Closed: the pause runs; then everything is looked up again from the start (service, id and
// displays), because a service that came back has forgotten all of it. Open: events are taken from the inbox. If there are
// several requests (one per display), the update is assembled once all of them have answered; the end of one ends all. Requests
// are numbered consecutively, so an event of a closed request that was still under way is recognised and dropped.
//
// The popups of all displays are asked for by display. One more request follows the displays themselves: when one comes or goes,
// all is opened again, and only what then differs is news.
//
// What differs is found when an update is taken, against the state that was taken before. So updates that are passed over because
// nobody takes them are missing in no account of changes.

#include "hmx/client/subscription.h"

#include "backoff.h"
#include "hmx/inputregions/service_path.h"
#include "input_surface.h"

namespace hmx::client {
namespace {

// How many updates are kept for a reader that does not take them.
constexpr std::size_t mostUpdates = 16;

std::string memberText(const Json& object, std::string_view key) {
    const Json& value = member(object, key);
    return value.is_null() ? "" : value.is_string() ? value.get<std::string>() : compact(value);
}

// The regions of a display, with a name by which one is known again in the next answer.
std::vector<Json> namedRegions(const kelo::Payload& payload) {
    std::vector<Json> named;
    for (const Json& region : regionsOf(payload)) {
        Json& element = named.emplace_back(Json::object());
        element["id"] = memberText(region, "hmiName") + "/" + memberText(region, "layer") + "/" + memberText(region, "regionID");
        element.update(region);
    }
    return named;
}

}  // namespace

class Subscription::Follower {
public:
    Follower(Client& client, Followed followed, std::function<void()> ready)
        : client_{client},
          followed_{std::move(followed)},
          begin_{client.dispatcher()},
          news_{client.dispatcher()},
          inbox_{client.dispatcher()} {
        if (ready) news_.onRaised(std::move(ready));
        begin_.raiseHere();
        life_ = client_.start(live(), [](const Outcome<void>&) {});
    }

    std::optional<Update> tryNext() {
        if (updates_.empty()) return {};
        Update update = std::move(updates_.front());
        updates_.pop_front();
        switch (update.kind) {
            case Update::Kind::snapshot:
            case Update::Kind::changed:
                show(update, state_ && !isDown_ ? Update::Kind::changed : Update::Kind::snapshot);
                break;
            case Update::Kind::missing:
                update.isRepeated = !state_ || state_->empty();
                if (!update.isRepeated) show(update, Update::Kind::missing);
                break;
            case Update::Kind::lost:
                update.isRepeated = std::exchange(isDown_, true);
                break;
            case Update::Kind::ended:
            case Update::Kind::failed:
                break;
        }
        return update;
    }

    Task<std::optional<Update>> next(std::optional<Deadline> until) {
        for (;;) {
            if (std::optional<Update> update = tryNext()) co_return update;
            if (until && until->passed()) co_return std::nullopt;
            co_await news_.raised(until);
        }
    }

    void limitAttempts(std::optional<Deadline> until) { limit_ = until; }

private:
    struct Source {
        Stream stream;
        std::optional<std::vector<Json>> elements;
    };

    // Makes the update one from the state that was handed out before.
    void show(Update& update, Update::Kind kind) {
        update.kind = kind;
        update.isBack = std::exchange(isDown_, false);
        if (state_ && !update.isBack) update.changes = changesBetween(*state_, update.elements);
        state_ = update.elements;
    }

    void put(Update update) {
        if (updates_.size() < mostUpdates) {
            updates_.push_back(std::move(update));
        } else {
            updates_.back() = std::move(update);
        }
        news_.raiseHere();
    }

    void fail(Update::Kind kind, const Error& error) { put({.kind = kind, .error = error}); }

    Task<> live() {
        co_await begin_.raised();
        for (;;) {
            std::optional<Error> failure;
            try {
                co_await open();
            } catch (const Error& error) {
                failure = error;
            }
            if (failure && !mends(*failure)) co_return;
            while (isOpen_) {
                const std::optional<Event> event = co_await inbox_.take();
                try {
                    if (!take(*event)) co_return;
                } catch (const Error& error) {
                    fail(Update::Kind::failed, error);
                    co_return;
                }
            }
            co_await client_.dispatcher().pause(reopenPause_);
        }
    }

    Task<> open() {
        const Deadline deadline = limit_ ? limit_->atMost(backoff::attempt) : Deadline{backoff::attempt};
        displays_.reset();
        if (!followed_.surface.empty()) {
            service_.emplace(co_await client_.service(std::string{kelo::hmx::inputregions::servicePath}, deadline));
            queries_ = {surfaceQuery(followed_.surface)};
        } else {
            Elements elements{client_, deadline};
            const Service* const hmx = co_await elements.service();
            queries_ = co_await findQueries(elements);
            service_.emplace(*hmx);
        }
        firstSource_ += sources_.size();
        sources_.clear();
        sources_.resize(queries_.size());
        for (std::size_t i = 0; i < queries_.size(); ++i) {
            sources_[i].stream = followed_.surface.empty()
                                     ? service_->open(queries_[i], inbox_, firstSource_ + i)
                                     : openSurface(*service_, followed_.surface, inbox_, firstSource_ + i, false);
        }
        isOpen_ = true;
    }

    Task<std::vector<Query>> findQueries(Elements& elements) {
        const Resource& resource = *followed_.target.resource;
        std::vector<Query> queries;
        if (followed_.target.element.empty()) {
            queries = co_await elements.listQueries(resource, followed_.parameters);
            if (resource.path == "/popups" && member(followed_.parameters, "display").is_null()) {
                displays_ = co_await elements.displayNames();
                queries.emplace_back("retrieve", std::string{resourceNamed("displays").path}, nullptr);
            }
        } else {
            const std::UUID id = co_await elements.find(followed_.target, followed_.display);
            // Makes the service know the id, and says so where it does not.
            (void)co_await elements.request("retrieve", resource, id, followed_.parameters);
            queries.emplace_back("retrieve", elementPath(resource, id), followed_.parameters);
        }
        co_return queries;
    }

    void close(std::chrono::milliseconds pause) {
        for (Source& source : sources_) source.stream = {};
        isOpen_ = false;
        reopenPause_ = pause;
    }

    // False when nothing will come any more.
    bool mends(const Error& error) {
        pause_ = backoff::next(pause_);
        close(pause_);
        if (error.isNotFound()) {
            fail(Update::Kind::missing, error);
        } else if (error.isPassing()) {
            fail(Update::Kind::lost, error);
        } else {
            fail(Update::Kind::failed, error);
            return false;
        }
        return true;
    }

    std::vector<Json> elementsIn(const kelo::Payload& payload) const {
        return followed_.surface.empty() ? elementsOf(decode(payload)) : namedRegions(payload);
    }
    bool isDisplays(std::size_t index) const noexcept { return displays_ && index + 1 == sources_.size(); }

    // False when nothing will come any more.
    bool take(const Event& event) {
        if (event.source < firstSource_ || event.source >= firstSource_ + sources_.size()) return true;
        const std::size_t index = event.source - firstSource_;
        const std::optional<Error> error = service_->errorOf(queries_[index], event);
        if (event.kind == Event::Kind::completed) {
            close(backoff::afterEnd);
            fail(Update::Kind::ended, *error);
            return true;
        }
        if (error && error->status() == 404 && sources_.size() > 1) {
            sources_[index].elements.emplace();  // of several displays one may be unknown where popups are managed: it has none
        } else if (error) {
            return mends(*error);
        } else if (isDisplays(index)) {
            std::vector<std::string> names;
            for (const Json& display : elementsIn(event.response.payload())) names.push_back(text(display, "name"));
            if (names != *displays_) {
                close(backoff::shortest);
                return true;
            }
            if (sources_[index].elements || sources_.size() > 1) return true;
            sources_[index].elements.emplace();
        } else {
            sources_[index].elements = elementsIn(event.response.payload());
        }
        pause_ = std::chrono::milliseconds{0};
        Update update;
        for (std::size_t i = 0; i < sources_.size(); ++i) {
            const Source& source = sources_[i];
            if (!source.elements && isDisplays(i) && i > 0) continue;
            if (!source.elements) return true;
            update.elements.insert(update.elements.end(), source.elements->begin(), source.elements->end());
        }
        update.payload = event.response.payload();
        put(std::move(update));
        return true;
    }

    Client& client_;
    Followed followed_;
    Signal begin_;
    Signal news_;
    Inbox inbox_;

    std::deque<Update> updates_;              // not taken yet
    std::optional<std::vector<Json>> state_;  // taken last
    bool isDown_ = false;                     // as far as was taken

    std::vector<Query> queries_;
    std::optional<Service> service_;
    std::vector<Source> sources_;
    std::optional<std::vector<std::string>> displays_;  // whose popups are followed; the last source says when they change
    std::size_t firstSource_ = 0;                       // events of requests before this one are those of closed streams
    bool isOpen_ = false;
    std::chrono::milliseconds pause_{0};
    std::chrono::milliseconds reopenPause_{0};
    std::optional<Deadline> limit_;
    Operation life_;  // ends first
};

Subscription::Subscription(Client& client, Followed followed, std::function<void()> ready)
    : follower_{std::make_unique<Follower>(client, std::move(followed), std::move(ready))} {}

Subscription::~Subscription() = default;

std::optional<Update> Subscription::tryNext() {
    return follower_->tryNext();
}

Task<std::optional<Update>> Subscription::next(std::optional<Deadline> until) {
    return follower_->next(until);
}

void Subscription::limitAttempts(std::optional<Deadline> until) {
    follower_->limitAttempts(until);
}

}  // namespace hmx::client
