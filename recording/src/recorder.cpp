// Every source is a task that finds its service, opens the request, waits until it has ended, and begins anew after a pause. What
// the requests bring goes through one inbox, in the order of arrival; requests are numbered, so what is left of a closed one is
// recognised. Times are those of arrival, and never go back.
//
// The displays decide what else is followed. A display that is new gets its sources at once. One that goes takes them along; the
// numbers of their entries are kept, in case it returns.

#include "hmx/recording/recorder.h"

#include <algorithm>
#include <map>
#include <utility>

#include "hmx/client/elements.h"
#include "hmx/client/resources.h"
#include "hmx/displaymanager/service_path.h"
#include "hmx/inputregions/service_path.h"
#include "hmx/popups/service_path.h"
#include "hmx/recording/times.h"
#include "hmx/recording/trail.h"
#include "hmx/regionconfiguration_object_display_enum.h"
#include "hmx/regionconfiguration_object_hmi_enum.h"
#include "json_text.h"
#include "kelo/path.h"

namespace hmx::recording {
namespace {

using client::Error;
using client::Json;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds shortestPause{20};
constexpr milliseconds longestPause{400};
constexpr milliseconds endedPause{1000};
// How long one attempt to find a service may take.
constexpr milliseconds attempt{2000};
// How much of what has arrived waits to be written.
constexpr std::size_t waitingBytes = std::size_t{2} * 1024U * 1024U;
// How much of it is looked at before anything else gets a turn.
constexpr int mostAtOnce = 256;
// How many sources there may be, whatever names displays take.
constexpr std::size_t mostSources = 4096;

const std::string hmxPath{client::hmxService};
const std::string displayManager{kelo::hmx::displaymanager::servicePath};
const std::string inputManager{kelo::hmx::inputregions::servicePath};
const std::string popupManager{kelo::hmx::popups::servicePath};

std::string partOf(const std::string& name) {
    return kelo::Path::replacePattern("/*", {name});
}

std::vector<std::string> namesIn(const Json& displays) {
    std::vector<std::string> names;
    const Json& list =
        displays.contains("data") ? client::member(displays, "data") : client::member(displays, "infoForAllDisplays");
    for (const Json& display : list) {
        std::string name = client::text(display, "name");
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    return names;
}

}  // namespace

Plan Plan::everything() {
    Plan plan{.popups = true};
    for (const char* path : {"/displays", "/displayables", "/layerconfigurations"}) plan.sources.push_back({hmxPath, path});
    using Display = kelo::hmx::RegionconfigurationObjectDisplayEnum;
    using Hmi = kelo::hmx::RegionconfigurationObjectHmiEnum;
    const client::Resource& regions = client::resourceNamed("regionconfigurations");
    for (const std::string_view display : enumNames(Display{})) {
        for (const std::string_view hmi : enumNames(Hmi{})) {
            const auto id = regions.idOf(std::string{display} + "/" + std::string{hmi});
            plan.sources.push_back({hmxPath, client::elementPath(regions, *id)});
        }
    }
    return plan;
}

class Recorder::Followers {
public:
    Followers(client::Client& client, const Head& head, Plan plan, Callbacks callbacks)
        : client_{client},
          origin_{std::chrono::steady_clock::time_point{nanoseconds{head.origin}}},
          plan_{std::move(plan)},
          callbacks_{std::move(callbacks)},
          begin_{client.dispatcher()},
          more_{client.dispatcher()},
          inbox_{client.dispatcher(), waitingBytes} {
        inbox_.onArrival([this] { takeAll(); });
        more_.onRaised([this] { takeAll(); });
        begin_.raiseHere();
        for (const Source& source : plan_.sources) follow(source);
        if (plan_.popups) follow({hmxPath, "/displays"});
        if (!plan_.upstream) return;
        for (const char* path : {"/displays", "/displayables", "/layerConfig"}) follow({displayManager, path});
    }

    std::vector<const Json*> documents() const {
        std::vector<const Json*> documents;
        for (const auto& [key, follower] : followers_) {
            const Trail& trail = follower->trail;
            if (trail.source().service != hmxPath || trail.text().empty()) continue;
            if (!follower->document) follower->document = treeOf(trail.text());
            documents.push_back(&*follower->document);
        }
        return documents;
    }

    std::optional<Error> silence() const { return hasAnswered_ ? std::nullopt : failure_; }

private:
    // One source. Its address stays.
    struct Follower {
        Follower(client::Dispatcher& dispatcher, Source source)
            : trail{source}, query{"retrieve", source.path, source.parameters}, closed{dispatcher} {}

        Trail trail;
        client::Query query;
        client::Signal closed;
        std::optional<Json> document;  // the trail's, made when it is wanted
        std::optional<client::Service> service;
        client::Stream stream;
        std::size_t number = 0;  // of the open request; 0: none is open
        milliseconds pause{0};
        client::Operation life;  // ends first
    };

    void follow(const Source& source) {
        std::unique_ptr<Follower>& follower = followers_[source.key()];
        if (!follower) {
            if (followers_.size() > mostSources) {
                followers_.erase(source.key());
                return;
            }
            follower = std::make_unique<Follower>(client_.dispatcher(), source);
        }
        if (!follower->life.isOpen()) follower->life = client_.start(live(*follower), [](const client::Outcome<void>&) {});
    }

    void leave(const Source& source, const std::string& reason) {
        const auto found = followers_.find(source.key());
        if (found == followers_.end() || !found->second->life.isOpen()) return;
        Follower& follower = *found->second;
        follower.life = {};
        close(follower, milliseconds{0});
        put(follower, now(), Kind::missing, 404, reason);
    }

    client::Task<> live(Follower& follower) {
        co_await begun();
        for (;;) {
            std::optional<Error> failure;
            try {
                const client::Deadline deadline{attempt};
                follower.service.emplace(co_await client_.service(follower.trail.source().service, deadline));
                follower.number = ++lastNumber_;
                open_[follower.number] = &follower;
                follower.stream = follower.service->open(follower.query, inbox_, follower.number);
            } catch (const Error& error) {
                failure = error;
            }
            if (failure) fail(follower, now(), *failure);
            while (follower.number != 0) co_await follower.closed.raised();
            co_await client_.dispatcher().pause(follower.pause);
        }
    }

    // Nothing is asked before the first dispatch.
    client::Task<> begun() {
        if (!isBegun_) co_await begin_.raised();
        isBegun_ = true;
    }

    void close(Follower& follower, milliseconds pause) {
        open_.erase(follower.number);
        follower.number = 0;
        follower.stream = {};
        follower.pause = pause;
        follower.closed.raiseHere();
    }

    void fail(Follower& follower, nanoseconds at, const Error& error) {
        close(follower, std::clamp(follower.pause * 2, shortestPause, longestPause));
        if (!failure_ || error.status() == 0) failure_ = error;
        const Kind kind = error.isNotFound() ? Kind::missing : error.isPassing() ? Kind::lost : Kind::failed;
        const int status = error.status() != 0 ? error.status() : kind == Kind::lost ? 503 : 0;
        const std::string reason = error.reason().empty() ? error.what() : error.reason();
        if (follower.trail.last() != kind) put(follower, at, kind, status, reason);
    }

    void put(Follower& follower, nanoseconds at, Kind kind, int status, const std::string& reason) {
        callbacks_.line(at, follower.trail.event(at, kind, status, reason));
        callbacks_.turn(follower.trail.source(), kind, reason);
    }

    nanoseconds timeOf(std::chrono::steady_clock::time_point at) {
        latest_ = std::max(latest_, nanoseconds{at - origin_});
        return latest_;
    }
    nanoseconds now() { return timeOf(std::chrono::steady_clock::now()); }

    void takeAll() {
        for (int left = mostAtOnce; left > 0; --left) {
            const std::optional<client::Event> event = inbox_.tryTake();
            if (!event) return;
            take(*event);
        }
        more_.raiser().raise();  // in the next dispatch, so that others get their turn
    }

    void take(const client::Event& event) {
        const auto found = open_.find(event.source);
        if (found == open_.end()) return;
        Follower& follower = *found->second;
        const nanoseconds at = timeOf(event.at);
        const std::optional<Error> error = follower.service->errorOf(follower.query, event);
        if (event.kind == client::Event::Kind::completed) {
            close(follower, endedPause);
            if (follower.trail.last() != Kind::ended) put(follower, at, Kind::ended, 0, error->what());
            return;
        }
        if (error) return fail(follower, at, *error);
        const bool isTurn = follower.trail.last() != Kind::state && follower.trail.last() != Kind::change;
        std::string line;
        try {
            const kelo::Payload& payload = event.response.payload();
            const bool isJson = payload.mimeType().id() == kelo::mimetypes::MimeTypeID::json && !payload.empty();
            line = follower.trail.answer(at, event.response.status(),
                                         isJson ? std::string{payload.text()} : client::compact(client::decode(payload)));
        } catch (const Error& unreadable) {
            return fail(follower, at, unreadable);
        }
        hasAnswered_ = true;
        follower.pause = milliseconds{0};
        follower.document.reset();
        callbacks_.line(at, std::move(line));
        if (isTurn) callbacks_.turn(follower.trail.source(), Kind::state, "");
        if (follower.trail.source().path == "/displays") showDisplays(follower);
    }

    // The popups of the displays of /hmx, and what the managers say of those of the display manager.
    void showDisplays(const Follower& follower) {
        const std::vector<std::string> names = namesIn(treeOf(follower.trail.text()));
        if (follower.trail.source().service == displayManager) {
            show(upstreamDisplays_, names, [](const std::string& name) {
                return std::vector<Source>{{inputManager, partOf(name)}, {popupManager, partOf(name)}};
            });
        } else if (plan_.popups) {
            show(popupDisplays_, names, [](const std::string& name) {
                return std::vector<Source>{{hmxPath, "/popups", Json{{"display", name}}}};
            });
        }
    }

    // Follows what belongs to the displays that there are, and no longer what belongs to others.
    template <class F>
    void show(std::vector<std::string>& known, const std::vector<std::string>& names, F sourcesOf) {
        for (const std::string& name : known) {
            if (std::find(names.begin(), names.end(), name) != names.end()) continue;
            for (const Source& source : sourcesOf(name)) leave(source, "there is no display " + name + " any more");
        }
        for (const std::string& name : names) {
            for (const Source& source : sourcesOf(name)) follow(source);
        }
        known = names;
    }

    client::Client& client_;
    std::chrono::steady_clock::time_point origin_;
    Plan plan_;
    Callbacks callbacks_;
    client::Signal begin_;
    client::Signal more_;
    client::Inbox inbox_;
    std::vector<std::string> popupDisplays_;
    std::vector<std::string> upstreamDisplays_;
    nanoseconds latest_{0};
    bool isBegun_ = false;
    bool hasAnswered_ = false;
    std::optional<Error> failure_;
    std::size_t lastNumber_ = 0;
    std::map<std::size_t, Follower*> open_;  // by the numbers of their requests
    std::map<std::string, std::unique_ptr<Follower>> followers_;
};

Recorder::Recorder(client::Client& client, const Head& head, Plan plan, Callbacks callbacks)
    : followers_{std::make_unique<Followers>(client, head, std::move(plan), std::move(callbacks))} {}

Recorder::~Recorder() = default;

std::vector<const Json*> Recorder::documents() const {
    return followers_->documents();
}

std::optional<Error> Recorder::silence() const {
    return followers_->silence();
}

}  // namespace hmx::recording
