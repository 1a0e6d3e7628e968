// What a recording says of /hmx is put into a replica, and what it says of the other services is answered as it stands. Both are
// asked in this process, so every verb works as it does on a running system.
//
// Playing applies entry after entry, at the time that the speed gives it. Who follows must be able to keep up, even if the speed
// has no limit: each entry takes a turn of the dispatcher. A subscription that has to ask anew, because its source returns or
// another display has come, waits a little before it does; so does playing, then.

#include "recorded_domain.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "hmx/client/dispatcher.h"
#include "hmx/client/error.h"
#include "hmx/client/records.h"
#include "hmx/client/suggest.h"
#include "hmx/recording/moment.h"
#include "hmx/recording/reader.h"
#include "hmx/recording/times.h"
#include "hmx/replica/local_api.h"
#include "hmx/replica/replica.h"

namespace hmxctl {
namespace {

using namespace hmx::client;  // NOLINT(google-build-using-namespace)
using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Moment;
using hmx::recording::Reader;
using hmx::recording::Source;
using hmx::recording::SourceState;
using hmx::replica::LocalApi;
using kelo::Response;
using std::chrono::nanoseconds;

constexpr std::chrono::milliseconds longestPause{450};  // of a subscription that has to ask anew

Response refusal(const SourceState& state) {
    const int status = state.status >= 400 ? state.status : 503;
    return Response::createErrorResponse(static_cast<std::uint16_t>(status), state.reason);
}

bool isAnswering(const SourceState& state) {
    return state.isKnown && (state.kind == EntryKind::state || state.kind == EntryKind::ended);
}

// Answers that nothing can be changed.
class NoChanges final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request&, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        responder->error(Response::createErrorResponse(403, "a recording cannot be changed"));
        return nullptr;
    }
    void cancelRequest(void*) override {}
};

// Sends what a retrieve finds. Thread: main, as all here.
class Sender final : public kelo::IResponseHandler<Json> {
public:
    Sender(std::unique_ptr<kelo::IResponder> responder, const kelo::Request& request)
        : responder_{std::move(responder)}, mimeType_{request.getMimeTypeHeader()}, oneShot_{request.isOneShot()} {}
    bool onNext(const Json& document) override { return responder_->next(Response{200, encode(document, mimeType_)}); }
    void onError(const Response& response) override { responder_->error(response); }
    void onCompleted() override { responder_->completed(); }
    bool isOneShot() const override { return oneShot_; }

private:
    std::unique_ptr<kelo::IResponder> responder_;
    std::string mimeType_;
    bool oneShot_;
};

// Answers the retrieves of one service that are in the recording, and no others.
class RecordedService final : public kelo::IResourceHandler {
public:
    RecordedService(std::string path, const Moment& moment) : path_{std::move(path)}, moment_{moment} {
        (void)composed_.registerService("/", this);
    }

    kelo::IKeloApi& api() noexcept { return api_; }
    void renew(const Source& source) { followers_.renew(source.key()); }

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override {
        if (request.command() != "retrieve") return NoChanges{}.actionRequest(request, std::move(responder), tag);
        const Source source{path_, request.path(), decode(request.payload())};
        auto look = [this, source]() -> hmx::replica::Found<Json> {
            const SourceState* const state = moment_.find(source);
            if (state == nullptr) {
                return Response::createErrorResponse(404, "the recording does not hold " + source.path + " of " + path_);
            }
            if (!isAnswering(*state)) return refusal(*state);
            return state->document;
        };
        return followers_.add(std::make_shared<hmx::replica::Retrieve<Json, decltype(look)>>(
            source.key(), std::make_unique<Sender>(std::move(responder), request), std::move(look)));
    }
    void cancelRequest(void* handle) override { followers_.cancel(handle); }

private:
    std::string path_;
    const Moment& moment_;
    hmx::replica::Followers followers_;
    kelo::SimpleComposedKeloService composed_;
    LocalApi api_{path_, composed_};
};

// The replica of /hmx, fed from the recording.
class RecordedHmx {
public:
    kelo::IKeloApi& api() noexcept { return api_; }
    bool isFollowed() const noexcept { return api_.hasStreams(); }

    // `what`: of a resource of which nothing is known; its path comes after it.
    void explainSilence(const std::string& what) {
        const auto lack = [&](auto& resource, std::string_view path) {
            resource.lack(Response::createErrorResponse(503, what + std::string{path}));
        };
        lack(replica_.displays(), "/displays");
        lack(replica_.displayables(), "/displayables");
        lack(replica_.layerconfigurations(), "/layerconfigurations");
        lack(replica_.popups(), "/popups");
        lack(replica_.regionconfigurations(), "/regionconfigurations");
    }

    void show(const SourceState& state) {
        const std::string& path = state.source.path;
        const Json& parameters = state.source.parameters;
        const bool isWhole = parameters.is_null() || parameters.empty();
        constexpr std::string_view regions = "/regionconfigurations/";
        if (path == "/displays" && isWhole) {
            showList(replica_.displays(), "", state);
        } else if (path == "/displayables" && isWhole) {
            showList(replica_.displayables(), "", state);
        } else if (path == "/layerconfigurations" && isWhole) {
            showList(replica_.layerconfigurations(), "", state);
        } else if (path == "/popups" && parameters.size() == 1 && parameters.contains("display")) {
            showList(replica_.popups(), text(parameters, "display"), state);
        } else if (path.starts_with(regions) && isWhole) {
            showOne(replica_.regionconfigurations(), path.substr(regions.size()), state);
        }
    }

private:
    template <class Element>
    static void showList(hmx::replica::Resource<Element>& resource, const std::string& part, const SourceState& state) {
        if (!isAnswering(state)) return resource.lose(part, refusal(state));
        showRead(resource, part, [&] { return recordOf<kelo::tolu::ListPage<Element>>(state.document).data; });
    }
    template <class Element>
    static void showOne(hmx::replica::Resource<Element>& resource, const std::string& part, const SourceState& state) {
        if (state.kind == EntryKind::missing) return resource.set(part, {});
        if (!isAnswering(state)) return resource.lose(part, refusal(state));
        showRead(resource, part, [&] { return std::vector{std::make_shared<Element>(recordOf<Element>(state.document))}; });
    }
    // `read()` returns the elements. What cannot be read is refused, as a service would that cannot read its upstream.
    template <class Element, class Read>
    static void showRead(hmx::replica::Resource<Element>& resource, const std::string& part, Read read) {
        std::vector<std::shared_ptr<Element>> elements;
        try {
            elements = read();
        } catch (const Error& error) {
            resource.lose(part, Response::createErrorResponse(500, error.what()));
            throw;
        }
        resource.set(part, std::move(elements));
    }

    NoChanges noChanges_;
    hmx::replica::Replica replica_{noChanges_};
    LocalApi api_{std::string{hmxService}, replica_.service()};
};

class Recording final : public RecordedDomain {
public:
    Recording(Dispatcher& dispatcher, const PlaybackOptions& options)
        : dispatcher_{dispatcher},
          file_{hmx::recording::rereadable(options.file)},
          name_{options.file == "-" ? "standard input" : options.file},
          turn_{dispatcher} {
        const auto end = [&] { return hmx::recording::endOf(file_); };
        reader_ = std::make_unique<Reader>(file_);
        std::optional<nanoseconds> at;
        if (!options.at.empty()) {
            at = hmx::recording::parseTime(options.at, reader_->head(), end);
        } else if (options.plays) {
            at = hmx::recording::beginningOf(file_);
        }
        std::vector<hmx::recording::Problem> problems;
        moment_ = hmx::recording::momentAt(file_, at, &problems);
        for (const auto& problem : problems) complain(problem);
        shown_ = at ? *at : moment_.at();
        hmx_.explainSilence("the recording " + name_ + (at ? " says nothing until then of " : " does not hold "));
        for (const auto& [key, state] : moment_.sources()) {
            if (state.source.service != hmxService) services_.try_emplace(state.source.service, state.source.service, moment_);
            show(state);
        }
        if (options.plays) playing_ = dispatcher_.start(play(options.speed), [](const Outcome<void>&) {});
    }

    Task<kelo::IKeloApi*> attach(std::string path, Deadline) override {
        const std::vector<std::string> held = paths();
        if (path == hmxService && std::find(held.begin(), held.end(), path) != held.end()) co_return &hmx_.api();
        const auto found = services_.find(path);
        if (found != services_.end()) co_return &found->second.api();
        if (held.empty())
            throw Error{Error::Kind::noService, "the recording " + name_ + " says nothing until then",
                        Error::Details{.service = path}};
        const bool isUpstream = path != hmxService && path != "/hmxsim";
        throw Error{Error::Kind::noService,
                    "the recording " + name_ + " does not hold " + path,
                    {.service = path,
                     .hint = isUpstream ? "`hmxctl record --upstream` records the managers, too" : "it holds: " + joined(held),
                     .names = nearMatches(path, held)}};
    }

    Task<std::vector<ServiceState>> list(Deadline) override {
        std::vector<ServiceState> states;
        for (const std::string& path : paths()) {
            const auto isAlive = [&](const auto& each) { return each.second.source.service == path && isAnswering(each.second); };
            const bool alive = std::any_of(moment_.sources().begin(), moment_.sources().end(), isAlive);
            states.push_back({path, alive ? Life::alive : Life::stale, 0, name_, 0, {"application/json"}});
        }
        co_return states;
    }

    bool isAlive(std::string_view /*path*/) const override { return true; }
    std::string where() const override { return "the recording " + name_; }
    bool isOver() const override { return isOver_; }
    std::string clock() const override {
        const std::string wall = hmx::recording::wallTime(shown_, reader_->head());
        return wall.empty() ? std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(shown_).count()) + " ms"
                            : wall;
    }
    std::vector<std::string> complaints() const override { return complaints_; }

private:
    std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        for (const auto& [key, state] : moment_.sources()) {
            const std::string& service = state.source.service;
            if (std::find(paths.begin(), paths.end(), service) == paths.end()) paths.push_back(service);
        }
        return paths;
    }

    void complain(const hmx::recording::Problem& problem) {
        complain(name_ + ", line " + std::to_string(problem.line) + ": " + problem.what);
    }
    void complain(std::string text) {
        // A file that is played is read more than once.
        if (std::find(complaints_.begin(), complaints_.end(), text) == complaints_.end()) complaints_.push_back(std::move(text));
    }

    void show(const SourceState& state) {
        try {
            if (state.source.service == hmxService) return hmx_.show(state);
            const auto service = services_.find(state.source.service);
            if (service != services_.end()) service->second.renew(state.source);
        } catch (const Error& error) {
            complain(name_ + ": " + state.source.path + " of " + state.source.service + ": " + error.what());
        }
    }

    Task<> play(std::optional<double> speed) {
        const auto from = shown_;
        const auto begin = Deadline::Clock::now();
        // Who follows has to ask first.
        for (int turns = 0; turns < 8 && !isFollowed(); ++turns) co_await nextTurn();
        co_await settle();
        // How long until then, in the time of those who watch.
        const auto left = [&](nanoseconds at) {
            const std::chrono::duration<double, std::nano> passed{static_cast<double>((at - from).count()) / speed.value_or(1)};
            const auto due = begin + std::chrono::duration_cast<Deadline::Clock::duration>(passed);
            return speed ? std::chrono::floor<std::chrono::milliseconds>(due - Deadline::Clock::now())
                         : std::chrono::milliseconds{0};
        };
        while (const std::optional<Entry> entry = reader_->next()) {
            if (entry->at <= from) continue;
            if (const auto pause = left(entry->at); pause > pause.zero()) co_await dispatcher_.pause(pause);
            shown_ = entry->at;
            apply(*entry);
            co_await nextTurn();
            const bool answers = entry->kind == EntryKind::state || entry->kind == EntryKind::change;
            const bool asksAnew = entry->isBack || entry->source.path == "/displays" || !isFollowed();
            if (!speed && answers && asksAnew) co_await settle();
        }
        if (const auto pause = left(reader_->end()); pause > pause.zero()) co_await dispatcher_.pause(pause);
        shown_ = std::max(shown_, reader_->end());
        co_await settle();
        for (const auto& problem : reader_->problems()) complain(problem);
        isOver_ = true;
        turn_.raiser().raise();
    }

    void apply(const Entry& entry) {
        try {
            show(moment_.apply(entry));
        } catch (const Error& error) {
            complain(name_ + ", line " + std::to_string(reader_->line()) + ": " + error.what());
        }
    }

    // Until what was raised before has been looked after.
    // Twice: an answer first gets to the one who follows, and then to the one who shows it.
    Task<> nextTurn() {
        for (int turn = 0; turn < 2; ++turn) {
            turn_.raiser().raise();
            co_await turn_.raised();
        }
    }
    // Until nobody is about to ask anything, for a limited time.
    Task<> settle() {
        const Deadline limit{longestPause};
        co_await nextTurn();
        while (dispatcher_.nextTimer() && *dispatcher_.nextTimer() < limit.at() && !limit.passed()) {
            const auto left = *dispatcher_.nextTimer() - Deadline::Clock::now();
            co_await dispatcher_.pause(
                std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds{1}));
            co_await nextTurn();
        }
    }

    bool isFollowed() const { return hmx_.isFollowed(); }

    Dispatcher& dispatcher_;
    std::string file_;
    std::string name_;  // as typed
    std::unique_ptr<Reader> reader_;
    Moment moment_;
    nanoseconds shown_{0};
    std::vector<std::string> complaints_;
    RecordedHmx hmx_;
    std::map<std::string, RecordedService> services_;  // the others, by path
    Signal turn_;
    bool isOver_ = false;
    Operation playing_;  // ends first
};

}  // namespace

std::unique_ptr<RecordedDomain> openRecording(Dispatcher& dispatcher, const PlaybackOptions& options) {
    return std::make_unique<Recording>(dispatcher, options);
}

}  // namespace hmxctl
