// Every source is a retrieve that is kept open. Times are those of arrival, and never go back.
//
// The displays decide what else is followed. A display that is new gets its sources at once. One that goes takes them along; the
// numbers of their entries are kept, in case it returns.

#include "hmx/recording/recorder.h"

#include <algorithm>
#include <map>
#include <utility>

#include "hmx/client/elements.h"
#include "hmx/client/json_text.h"
#include "hmx/client/resources.h"
#include "hmx/client/retrieves.h"
#include "hmx/displaymanager/service_path.h"
#include "hmx/inputregions/service_path.h"
#include "hmx/popups/service_path.h"
#include "hmx/recording/times.h"
#include "hmx/recording/trail.h"
#include "hmx/regionconfiguration_object_display_enum.h"
#include "hmx/regionconfiguration_object_hmi_enum.h"
#include "kelo/path.h"

namespace hmx::recording {
namespace {

using client::Error;
using client::Heard;
using client::Json;
using client::treeOf;
using std::chrono::nanoseconds;

// How much of what has arrived waits to be written.
constexpr std::size_t waitingBytes = std::size_t{2} * 1024U * 1024U;
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
        : origin_{std::chrono::steady_clock::time_point{nanoseconds{head.origin}}},
          plan_{std::move(plan)},
          callbacks_{std::move(callbacks)},
          retrieves_{client, [this](const Heard& heard) { this->heard(heard); }, waitingBytes} {
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
        explicit Follower(Source source) : trail{std::move(source)} {}

        Trail trail;
        std::size_t retrieve = 0;      // its number; 0: it is not followed any more
        std::optional<Json> document;  // the trail's, made when it is wanted
    };

    void follow(const Source& source) {
        std::unique_ptr<Follower>& follower = followers_[source.key()];
        if (!follower) {
            if (followers_.size() > mostSources) {
                followers_.erase(source.key());
                return;
            }
            follower = std::make_unique<Follower>(source);
        }
        if (follower->retrieve != 0) return;
        follower->retrieve = retrieves_.follow(source.service, {"retrieve", source.path, source.parameters});
        byRetrieve_[follower->retrieve] = follower.get();
    }

    void leave(const Source& source, const std::string& reason) {
        const auto found = followers_.find(source.key());
        if (found == followers_.end() || found->second->retrieve == 0) return;
        Follower& follower = *found->second;
        retrieves_.leave(follower.retrieve);
        byRetrieve_.erase(std::exchange(follower.retrieve, 0));
        put(follower, timeOf(std::chrono::steady_clock::now()), EntryKind::missing, 404, reason);
    }

    void heard(const Heard& heard) {
        const auto found = byRetrieve_.find(heard.which);
        if (found == byRetrieve_.end()) return;
        Follower& follower = *found->second;
        const nanoseconds at = timeOf(heard.at);
        switch (heard.kind) {
            case Heard::Kind::answer:
                return take(follower, at, heard.response);
            case Heard::Kind::ended:
                if (follower.trail.last() != EntryKind::ended) put(follower, at, EntryKind::ended, 0, heard.error->what());
                return;
            case Heard::Kind::missing:
                return fail(follower, at, EntryKind::missing, *heard.error);
            case Heard::Kind::lost:
                return fail(follower, at, EntryKind::lost, *heard.error);
            case Heard::Kind::failed:
                return fail(follower, at, EntryKind::failed, *heard.error);
        }
    }

    void fail(Follower& follower, nanoseconds at, EntryKind kind, const Error& error) {
        if (!failure_ || error.status() == 0) failure_ = error;
        const int status = error.status() != 0 ? error.status() : kind == EntryKind::lost ? 503 : 0;
        const std::string reason = error.reason().empty() ? error.what() : error.reason();
        if (follower.trail.last() != kind) put(follower, at, kind, status, reason);
    }

    void put(Follower& follower, nanoseconds at, EntryKind kind, int status, const std::string& reason) {
        callbacks_.line(at, follower.trail.event(at, kind, status, reason));
        callbacks_.turn(follower.trail.source(), kind, reason);
    }

    nanoseconds timeOf(std::chrono::steady_clock::time_point at) {
        latest_ = std::max(latest_, nanoseconds{at - origin_});
        return latest_;
    }

    void take(Follower& follower, nanoseconds at, const kelo::Response& response) {
        const bool isTurn = follower.trail.last() != EntryKind::state && follower.trail.last() != EntryKind::change;
        std::string line;
        try {
            const kelo::Payload& payload = response.payload();
            const bool isJson = payload.mimeType().id() == kelo::mimetypes::MimeTypeID::json && !payload.empty();
            line = follower.trail.answer(at, response.status(),
                                         isJson ? std::string{payload.text()} : client::compact(client::decode(payload)));
        } catch (const Error& unreadable) {
            retrieves_.askAgain(follower.retrieve);
            return fail(follower, at, EntryKind::failed, unreadable);
        }
        hasAnswered_ = true;
        follower.document.reset();
        callbacks_.line(at, std::move(line));
        if (isTurn) callbacks_.turn(follower.trail.source(), EntryKind::state, "");
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

    std::chrono::steady_clock::time_point origin_;
    Plan plan_;
    Callbacks callbacks_;
    std::vector<std::string> popupDisplays_;
    std::vector<std::string> upstreamDisplays_;
    nanoseconds latest_{0};
    bool hasAnswered_ = false;
    std::optional<Error> failure_;
    std::map<std::string, std::unique_ptr<Follower>> followers_;
    std::map<std::size_t, Follower*> byRetrieve_;
    client::Retrieves retrieves_;
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
