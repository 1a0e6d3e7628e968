#include "drivers/drivers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "harness/questions.h"
#include "harness/stage.h"
#include "harness/tracker.h"

// Four trackers, each with a runtime of its own, watch one provider that is killed and restarted. In three of four rounds the
// provider lives until all trackers have seen it, so each must see it appear, get an answer from it, and see it disappear. In the
// fourth round it is killed at a random moment, possibly during its start. The trackers need not have seen it then, but must not
// have seen anything wrong.
//
// What a tracker does if the directory itself fails is tested with the bridge: which services it reports as alive, and whether it
// answers within half a second after its upstream services can be connected to.

namespace campaign {
namespace {

constexpr double promptly = 500;

// The time until the bridge serves; a large value if it never does.
double timeToServe(const Stage& stage, Clock::time_point since) {
    return eventually([&] { return stage.isServing(); }, milliseconds{5000}) ? millisecondsSince(since) : 1e9;
}

bool isConnectable(const Stage& stage, const std::string& servicePath) {
    return testing_support::RawPeer{connectTo(stage.socket(servicePath))}.isOpen();
}

void awaitSim(const Stage& stage) {
    const bool there = eventually([&] {
        return std::all_of(std::begin(managers), std::end(managers),
                           [&](std::string_view manager) { return isConnectable(stage, "/hmx" + std::string{manager}); });
    });
    if (!there) throw Failure{"the simulator does not publish:\n" + stage.log()};
}

std::size_t eventsThatAreQueued() {
    std::size_t most = 16384;
    std::ifstream{"/proc/sys/fs/inotify/max_queued_events"} >> most;
    return most;
}

}  // namespace

void driveTrack(const Scope& scope, Random& random, Report& report) {
    const unsigned restarts = scope.times(1000, 40);
    Stage stage{scope};
    const std::string path = "/watched";
    std::array<std::unique_ptr<Tracker>, 4> trackers;
    for (auto& tracker : trackers) tracker = std::make_unique<Tracker>(stage.domain(), path);
    unsigned missed = 0;
    double slowest = 0;
    const auto everyone = [&](auto holds) {
        for (auto& tracker : trackers) {
            if (!tracker->books.waitFor(holds, milliseconds{5000})) ++missed;
        }
    };
    // Requests that were not sent although the provider lived.
    const auto refusals = [&] {
        unsigned all = 0;
        for (const auto& tracker : trackers) all += tracker->books.get().refused;
        return all;
    };
    unsigned refused = 0;
    unsigned seen = 0;
    for (unsigned round = 0; round < restarts; ++round) {
        const auto provider = stage.startProvider(path);
        const pid_t pid = provider->pid();
        if (random.below(4) == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds{random.below(12'000)});
        } else {
            ++seen;
            const unsigned before = refusals();
            if (!eventually([&] { return isConnectable(stage, path); })) throw Failure{"a provider does not publish"};
            const auto since = Clock::now();
            everyone([&](const Tracker::Books& book) {
                return book.isAlive && book.pid == pid && book.answered + book.lost + book.refused >= book.added;
            });
            refused += refusals() - before;
            slowest = std::max(slowest, millisecondsSince(since));
        }
        provider->signal(SIGKILL);
        const auto since = Clock::now();
        everyone([](const Tracker::Books& book) { return !book.isAlive && book.gone == book.resolved; });
        slowest = std::max(slowest, millisecondsSince(since));
    }
    unsigned outOfTurn = 0;
    for (const auto& tracker : trackers) {
        const Tracker::Books book = tracker->books.get();
        if (book.added < seen) missed += seen - book.added;
        outOfTurn += book.outOfTurn + (book.added - book.removed) + (book.resolved - book.gone);
    }
    report.fact("restarts", restarts);
    report.fact("trackers", trackers.size());
    report.atMost("missed", missed, 0);
    report.atMost("doubled", outOfTurn, 0);
    report.atMost("refused connections shown", refused, 0);
    report.atMost("slowest", slowest, promptly, "ms");
}

void driveDirectory(const Scope& scope, Random& random, Report& report) {
    Stage stage{scope};
    const unsigned rounds = scope.times(20, 2);
    std::filesystem::remove_all(stage.folder() + "/run");
    // The tracker comes first, even before the directory.
    const auto bridge = stage.startBridge();
    if (!eventually([&] { return std::filesystem::exists(stage.domain()); })) throw Failure{"the bridge makes no directory"};
    auto sim = stage.startSim();
    awaitSim(stage);
    report.atMost("tracker first", timeToServe(stage, Clock::now()), promptly, "ms");

    double overflow = 0;
    double removed = 0;
    double emptied = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        // More happens than the kernel queues for a process that does not read; the important event is among those lost.
        bridge->stop();
        const std::size_t files = eventsThatAreQueued() / 2 + 100;
        const std::string file = stage.domain() + "/.file";
        for (std::size_t i = 0; i < files; ++i) {
            std::ofstream{file}.close();
            std::filesystem::remove(file);
        }
        sim->kill();
        sim = stage.startSim();
        awaitSim(stage);
        bridge->signal(SIGCONT);
        overflow = std::max(overflow, timeToServe(stage, Clock::now()));

        std::error_code error;  // services that publish again may be faster
        do {
            std::filesystem::remove_all(random.below(2) == 0 ? stage.domain() : stage.folder() + "/run", error);
        } while (error);
        removed = std::max(removed, timeToServe(stage, Clock::now()));
        sim->kill();
        sim = stage.startSim();
        awaitSim(stage);
        removed = std::max(removed, timeToServe(stage, Clock::now()));

        for (const auto& entry : std::filesystem::directory_iterator{stage.domain()})
            std::filesystem::remove(entry.path(), error);
        emptied = std::max(emptied, timeToServe(stage, Clock::now()));
    }
    report.atMost("reports lost", overflow, promptly, "ms");
    report.atMost("directory removed", removed, promptly, "ms");
    report.atMost("directory emptied", emptied, promptly, "ms");
}

}  // namespace campaign
