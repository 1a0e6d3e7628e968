// A recording is read twice. The first time tells when managers were away: a manager is away when all of its sources that had
// answered are lost before one of them answers again. A single source that was lost has been refused, and the manager was there;
// such losses are passed over. A manager has returned when what was lost has said something again, or soon after the first of
// it has: then it is published with the world that all had found, and not with half of it.
//
// The second time is the replay. Each entry makes its part of the world what the manager said, at its time. Requests of clients
// are answered from that world, and may change it by the simulator's own rules; the next entry of that source has precedence.
//
// Without a limit of speed, entries have a short time between them, because clients that cannot keep up get only the newest of
// several states, and a replay is to show them all. For the same reason, a manager stays away for a moment then, and after its
// return clients get the time to ask again.

#include "replay.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "hmx/recording/times.h"
#include "recorded_world.h"
#include "tracing/channel.h"

namespace hmxsim {

namespace {

using hmx::client::Error;
using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Reader;
using std::chrono::nanoseconds;
using namespace std::chrono_literals;

const tracing::Channel replayChannel{"HMXSIM_REPLAY"};

constexpr nanoseconds shortestStep = 500us;   // between two entries
constexpr nanoseconds timeToLose = 100ms;     // of a manager that goes
constexpr nanoseconds timeToReturn = 1s;      // of clients, when it is back
constexpr nanoseconds longestReturn = 250ms;  // from the first source of a manager that answers again to the last
constexpr nanoseconds pauseBetweenRounds = 100ms;
constexpr nanoseconds never = nanoseconds::max();

// Finds the times during which one manager was away.
class OutageFinder {
public:
    OutageFinder(ManagerId manager, std::vector<Outage>& outages) : manager_{manager}, outages_{outages} {}

    void take(const Entry& entry) {
        const std::string key = entry.source.key();
        if (returnBegan_ && entry.at > *returnBegan_ + longestReturn) endOutage();
        if (entry.kind == EntryKind::lost) {
            if (lost_.empty()) firstLoss_ = entry.at;
            lost_.insert(key);
            answering_.erase(key);
            if (answering_.empty() && !current_) {
                current_ = outages_.size();
                outages_.push_back({manager_, firstLoss_, never});
            }
            return;
        }
        const bool isAnswer = entry.kind == EntryKind::state || entry.kind == EntryKind::change;
        if (isAnswer) answering_.insert(key);
        if (lost_.erase(key) == 0 || !current_) return;
        if (!returnBegan_) returnBegan_ = entry.at;
        outages_[*current_].to = entry.at;
        if (lost_.empty()) endOutage();
    }

private:
    void endOutage() {
        current_.reset();
        returnBegan_.reset();
        lost_.clear();
    }

    ManagerId manager_;
    std::vector<Outage>& outages_;
    std::set<std::string> answering_;
    std::set<std::string> lost_;
    nanoseconds firstLoss_{0};
    std::optional<std::size_t> current_;  // index of the outage that is going on
    std::optional<nanoseconds> returnBegan_;
};

}  // namespace

ReplayPlan planReplay(const ReplayOptions& options) {
    ReplayPlan plan;
    plan.options = options;
    plan.file = hmx::recording::rereadable(options.file);
    Reader reader{plan.file};
    std::map<ManagerId, OutageFinder> finders;
    while (const std::optional<Entry> entry = reader.next()) {
        const std::optional<ManagerId> manager = managerAt(entry->source.service);
        if (!manager) continue;
        finders.try_emplace(*manager, *manager, plan.outages).first->second.take(*entry);
    }
    for (const auto& [manager, finder] : finders) plan.managers.push_back(manager);
    if (plan.managers.empty()) {
        throw Error{Error::Kind::invalid, options.file + " does not hold what the managers said, so it cannot be replayed",
                    "record it with `hmxctl record --upstream`"};
    }
    for (const auto& problem : reader.problems()) {
        plan.complaints.push_back(options.file + ", line " + std::to_string(problem.line) + ": " + problem.what);
    }
    std::stable_sort(plan.outages.begin(), plan.outages.end(), [](const Outage& a, const Outage& b) { return a.from < b.from; });
    const auto time = [&](const std::string& text, nanoseconds usual) {
        return text.empty() ? usual : hmx::recording::parseTime(text, reader.head(), [&] { return reader.end(); });
    };
    plan.start = time(options.start, hmx::recording::beginningOf(plan.file));
    plan.end = time(options.end, reader.end());
    if (plan.end <= plan.start && !(options.start.empty() && options.end.empty())) {
        throw Error{Error::Kind::invalid, options.file + ": the end of the replay is not after its start"};
    }
    return plan;
}

Replay::Replay(ReplayPlan plan, World& world, Timers& timers, Stage stage)
    : plan_{std::move(plan)}, world_{world}, timers_{timers}, stage_{std::move(stage)} {
    begin();
}

// The world and the managers as they were at the start.
void Replay::begin() {
    reader_ = std::make_unique<Reader>(plan_.file);
    moment_ = {};
    world_ = World{};
    isOver_ = false;
    at_ = plan_.start;
    while ((next_ = reader_->next()) && next_->at <= plan_.start) (void)apply(*next_);
    for (const ManagerId manager : plan_.managers) {
        isThere_[manager] = std::none_of(plan_.outages.begin(), plan_.outages.end(), [&](const Outage& outage) {
            return outage.manager == manager && outage.from <= at_ && at_ < outage.to;
        });
    }
    ++rounds_;
}

bool Replay::isThere(ManagerId manager) const {
    const auto found = isThere_.find(manager);
    return found != isThere_.end() && found->second;
}

void Replay::run(bool runs) {
    if (std::exchange(runs_, runs) == runs) return;
    ++turn_;
    if (runs) anchor();
}

void Replay::anchor() {
    anchor_ = timers_.now();
    anchorAt_ = at_;
    schedule();
}

// What comes next: an entry, the beginning or end of an outage, or the end.
nanoseconds Replay::nextDue() const {
    nanoseconds due = next_ ? std::min(plan_.end, next_->at) : plan_.end;
    for (const Outage& outage : plan_.outages) {
        for (const nanoseconds edge : {outage.from, outage.to}) {
            if (edge > at_) due = std::min(due, edge);
        }
    }
    return due;
}

void Replay::schedule() {
    Timers::Time when = timers_.now() + std::exchange(breath_, shortestStep);
    if (plan_.options.speed) {
        const auto since = static_cast<double>((nextDue() - anchorAt_).count()) / *plan_.options.speed;
        when = anchor_ + nanoseconds{static_cast<std::int64_t>(since)};
    }
    timers_.at(when, [this, turn = ++turn_] {
        if (turn == turn_) goOn();
    });
}

void Replay::goOn() {
    at_ = nextDue();
    for (const Outage& outage : plan_.outages) {
        if (outage.from == at_) setPublished(outage.manager, false);
    }
    while (next_ && next_->at <= at_) {
        if (const std::optional<ManagerId> manager = apply(*next_)) stage_.changed(*manager);
        next_ = reader_->next();
    }
    for (const Outage& outage : plan_.outages) {
        if (outage.to == at_) setPublished(outage.manager, true);
    }
    if (at_ < plan_.end) return schedule();
    isOver_ = true;
    tracing::logCV(replayChannel, 2, "the replay of %s has ended", plan_.options.file.c_str());
    if (!plan_.options.loops) return;
    timers_.at(timers_.now() + pauseBetweenRounds, [this, turn = ++turn_] {
        if (turn != turn_) return;
        const auto before = isThere_;
        begin();
        for (const auto& [manager, isThere] : std::exchange(isThere_, before)) {
            stage_.changed(manager);
            setPublished(manager, isThere);
        }
        anchor();
    });
}

void Replay::setPublished(ManagerId manager, bool isPublished) {
    if (std::exchange(isThere_[manager], isPublished) == isPublished) return;
    stage_.setPublished(manager, isPublished);
    breath_ = isPublished ? timeToReturn : timeToLose;
}

// Returns the manager whose world has changed.
std::optional<ManagerId> Replay::apply(const Entry& entry) {
    const std::optional<ManagerId> manager = managerAt(entry.source.service);
    if (!manager) return {};
    ++entries_;
    try {
        describe(world_, moment_.apply(entry));
    } catch (const Error& error) {
        tracing::logCV(replayChannel, 4, "%s, line %llu: %s", plan_.options.file.c_str(),
                       static_cast<unsigned long long>(reader_->line()), error.what());
        return {};
    }
    return manager;
}

std::string Replay::status() const {
    const auto seconds = [](nanoseconds time) { return std::chrono::duration<double>(time).count(); };
    nlohmann::ordered_json status{{"file", plan_.options.file},
                                  {"state", isOver_ ? "over"
                                            : runs_ ? "running"
                                                    : "paused"},
                                  {"start_s", seconds(plan_.start)},
                                  {"at_s", seconds(at_)},
                                  {"end_s", seconds(plan_.end)},
                                  {"rounds", rounds_},
                                  {"entries", entries_},
                                  {"outages", plan_.outages.size()},
                                  {"changesByClients", stage_.changes()}};
    if (plan_.options.speed) status["speed"] = *plan_.options.speed;
    return status.dump();
}

}  // namespace hmxsim
