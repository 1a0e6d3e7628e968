#include "drivers/drivers.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "harness/faults.h"
#include "harness/questions.h"
#include "harness/stage.h"

// What the host may refuse (descriptors, and space in the directory), what it may interrupt (any system call), and what it may do
// to an upstream service and to the clock.

namespace campaign {
namespace {

using testing_support::RawPeer;

void limitDescriptors(const Process& process, rlim_t count) {
    const rlimit limit{count, 4096};
    if (::prlimit(process.pid(), RLIMIT_NOFILE, &limit, nullptr) != 0) throw Failure{"cannot limit a process's descriptors"};
}

// A file system that soon has no space left, mounted at the stage's directory if we have the privilege.
class SmallDisk {
public:
    explicit SmallDisk(std::string directory)
        : directory_{std::move(directory)},
          isMounted_{::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     ::mount("none", directory_.c_str(), "tmpfs", 0, "nr_inodes=64,mode=700") == 0} {}
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (isMounted_) ::umount2(directory_.c_str(), MNT_DETACH);
    }

    bool isMounted() const noexcept { return isMounted_; }
    void fill() const {
        for (unsigned i = 0; std::ofstream{filling(i)}; ++i) {
        }
    }
    void drain() const {
        for (unsigned i = 0; std::filesystem::remove(filling(i)); ++i) {
        }
    }
    void setWritable(bool isWritable) const {
        const unsigned long flags = MS_REMOUNT | (isWritable ? 0UL : static_cast<unsigned long>(MS_RDONLY));
        if (::mount("none", directory_.c_str(), nullptr, flags, "nr_inodes=64") != 0) throw Failure{"cannot remount"};
    }

private:
    std::string filling(unsigned i) const { return directory_ + "/filling" + std::to_string(i); }

    const std::string directory_;
    const bool isMounted_;
};

// A bridge that has stopped listening finds no room in its event loop when it begins again.
void listensAgain(const Scope& scope, Report& report) {
    Stage stage{scope};
    const auto sim = stage.startSim();
    Faults faults{scope, stage.folder() + "/faults"};
    const auto bridge = stage.startBridge(faults.environment());
    stage.awaitServing();
    // The first registration is that of the client which could not be accepted, the next ones are the listener's.
    faults.set(Call::epollControl, {.error = ENOSPC, .from = 2, .times = 3});
    faults.set(Call::accept, {.error = EMFILE, .times = 1});
    const auto first = stage.connect();
    const bool haveFailed = eventually([&] { return faults.hits() >= 4; });
    const auto since = Clock::now();
    const bool isHeard = stage.connect()->call("retrieve", "/displays").status == 200;
    report.atMost("listening again after", haveFailed && isHeard ? millisecondsSince(since) : 1e9, 1000, "ms");
}

}  // namespace

void driveDescriptors(const Scope& scope, Random& /*random*/, Report& report) {
    Stage stage{scope};
    auto sim = stage.startSim();
    const auto bridge = stage.startBridge();
    stage.awaitServing();
    const auto witness = stage.connect();
    const std::size_t before = bridge->descriptors();
    limitDescriptors(*bridge, bridge->nextDescriptor());
    // From here on, new clients cannot be accepted, and an upstream service that returns cannot be connected to.
    std::vector<std::unique_ptr<RawPeer>> waiting;
    const Bytes hello = testing_support::helloFrame("/hmx");
    for (unsigned i = 0; i < 20; ++i) {
        waiting.push_back(std::make_unique<RawPeer>(connectTo(stage.socket("/hmx"))));
        waiting.back()->send(hello);
    }
    const std::size_t sleeps = bridge->sleeps();
    const auto since = Clock::now();
    unsigned unserved = 0;
    unsigned asked = 0;
    const milliseconds duration{scope.isCut ? 1000 : 5000};
    while (Clock::now() < since + duration) {
        std::this_thread::sleep_for(milliseconds{100});
        ++asked;
        if (witness->call("retrieve", "/$platform/status").status != 200) ++unserved;
    }
    // The bridge may wake up once for each request of the witness.
    const double wakeUps =
        (static_cast<double>(bridge->sleeps() - sleeps) - asked) / std::chrono::duration<double>(Clock::now() - since).count();
    limitDescriptors(*bridge, 1024);
    const auto freed = Clock::now();
    unsigned refused = 0;
    for (auto& peer : waiting) refused += peer->receive(5000) ? 0 : 1;
    const double recovered = millisecondsSince(freed);
    waiting.clear();

    // The same with an upstream service that dies and returns in the meantime.
    sim->kill();
    // By then, its three connections are closed, and those of the clients that are gone.
    const bool isGone =
        eventually([&] { return bridge->descriptors() + 3 <= before; }) && witness->call("retrieve", "/displays").status == 503;
    limitDescriptors(*bridge, bridge->nextDescriptor());
    sim = stage.startSim();
    std::this_thread::sleep_for(milliseconds{300});
    const bool isStillGone = witness->call("retrieve", "/displays").status == 503;
    limitDescriptors(*bridge, 1024);
    const auto again = Clock::now();
    const bool returned = eventually([&] { return witness->call("retrieve", "/displays").status == 200; });
    if (!isGone || !isStillGone) report.broken("the bridge had descriptors left");
    report.fact("clients waiting", 20);
    report.atMost("wake-ups a second", wakeUps, 100);
    report.atMost("others not served", unserved, 0);
    report.atMost("refused in the end", refused, 0);
    report.atMost("accepted after", recovered, 1000, "ms");
    listensAgain(scope, report);
    report.atMost("upstream alive after", returned ? millisecondsSince(again) : 1e9, 1500, "ms");
}

void driveDisk(const Scope& scope, Random& /*random*/, Report& report) {
    Stage stage{scope};
    // First, calls fail, which needs no privileges; then the file system is really full or read-only.
    struct Refusal {
        std::string name;
        std::function<void()> begin;
        std::function<void()> end;
    };
    std::vector<Refusal> refusals;
    Faults faults{scope, stage.folder() + "/faults"};
    for (const int error : {ENOSPC, EROFS, EDQUOT}) {
        for (const auto& [call, name] :
             {std::pair{Call::bind, "bind"}, std::pair{Call::rename, "rename"}, std::pair{Call::open, "open"}}) {
            refusals.push_back({std::string{name} + " " + std::to_string(error),
                                [&faults, error, call = call] { faults.set(call, {.action = Action::fail, .error = error}); },
                                [&faults] { faults.clear(); }});
        }
    }
    const SmallDisk disk{stage.folder() + "/run"};
    if (disk.isMounted()) {
        std::filesystem::create_directories(stage.domain());
        refusals.push_back({"full", [&] { disk.fill(); }, [&] { disk.drain(); }});
        refusals.push_back({"read-only", [&] { disk.setWritable(false); }, [&] { disk.setWritable(true); }});
    }
    auto bridge = stage.startBridge(faults.environment());
    auto sim = stage.startSim({}, faults.environment());
    stage.awaitServing();
    unsigned early = 0;
    unsigned late = 0;
    unsigned ended = 0;
    double slowest = 0;
    for (const Refusal& refusal : refusals) {
        sim->kill();
        bridge->kill();
        for (const auto& entry : std::filesystem::directory_iterator{stage.domain()}) std::filesystem::remove(entry.path());
        refusal.begin();
        bridge = stage.startBridge(faults.environment());
        sim = stage.startSim({}, faults.environment());
        std::this_thread::sleep_for(milliseconds{scope.isCut ? 100 : 500});
        if (stage.isServing()) ++early;
        if (!sim->isRunning() || !bridge->isRunning()) ++ended;
        refusal.end();
        const auto since = Clock::now();
        if (!eventually([&] { return stage.isServing(); }, milliseconds{5000})) {
            ++late;
            report.note("after " + refusal.name + ": " + stage.log());
        }
        slowest = std::max(slowest, millisecondsSince(since));
    }
    report.fact("refusals", static_cast<double>(refusals.size()));
    report.fact("of a real file system", disk.isMounted() ? 2 : 0);
    report.atMost("without effect", early, 0);
    report.atMost("processes ended", ended, 0);
    report.atMost("not alive again", late, 0);
    report.atMost("alive after", slowest, 1000, "ms");
}

void driveInterrupted(const Scope& scope, Random& random, Report& report) {
    Stage stage{scope};
    Faults bridgeFaults{scope, stage.folder() + "/bridge-faults"};
    Faults simFaults{scope, stage.folder() + "/sim-faults"};
    const auto sim = stage.startSim({}, simFaults.environment());
    const auto bridge = stage.startBridge(bridgeFaults.environment());
    stage.awaitServing();
    const auto calm = stage.connect();
    const std::vector<Question> questions = everyQuestion(*calm);
    std::vector<std::string> expected;
    std::vector<const Question*> asked;
    for (const Question& question : questions) {
        if (question.command == "retrieve" && question.oneShot) {
            asked.push_back(&question);
            expected.push_back(calm->get(question.path, question.payload));
        }
    }
    const unsigned rounds = scope.times(400, 40);
    unsigned requests = 0;
    unsigned wrong = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        for (Faults* faults : {&bridgeFaults, &simFaults}) {
            for (const Call call : {Call::receive, Call::send, Call::accept, Call::epollWait, Call::connect}) {
                const bool isShort = (call == Call::receive || call == Call::send) && random.below(2) == 0;
                faults->set(call, {.action = isShort ? Action::shorten : Action::fail,
                                   .error = EINTR,
                                   .from = 1 + random.below(4),
                                   .every = 2 + random.below(4)});
            }
        }
        // A new connection each time, so that its beginning is tested too.
        Client client{stage.socket("/hmx")};
        for (unsigned i = 0; i < asked.size(); ++i) {
            const Asked& answer = client.call(asked[i]->command, asked[i]->path, asked[i]->payload);
            ++requests;
            if (answer.status != 200 || answer.answer != expected[i] || answer.ends != 1) {
                ++wrong;
                report.note(std::to_string(answer.status) + " " + answer.answer.substr(0, 200));
            }
        }
    }
    report.fact("calls interrupted or cut short", static_cast<double>(bridgeFaults.hits() + simFaults.hits()));
    report.fact("requests", requests);
    report.atMost("not answered as before", wrong, 0);
    report.atLeast("faults met", static_cast<double>(bridgeFaults.hits() + simFaults.hits()), requests);
}

void driveStopped(const Scope& scope, Random& /*random*/, Report& report) {
    Stage stage{scope};
    Faults faults{scope, stage.folder() + "/faults"};
    Faults simFaults{scope, stage.folder() + "/sim-faults"};
    const auto display = stage.startSim({"displaymanager"}, simFaults.environment());
    const auto others = stage.startSim({"inputmanager", "popupmanager"}, simFaults.environment());
    const auto bridge = stage.startBridge(faults.environment());
    stage.awaitServing();
    const auto client = stage.connect();
    const auto witness = stage.connect();
    const double deadline = stage.status().at("limits").at("requestDeadlineMilliseconds");
    const auto incarnations = [&] {
        double sum = 0;
        const auto status = stage.status();
        for (const auto& tracked : status.at("tracked")) sum += tracked.at("incarnation").get<double>();
        return sum;
    };
    const double before = incarnations();
    display->stop();
    std::vector<std::uint64_t> ids;
    for (unsigned i = 0; i < 50; ++i) {
        ids.push_back(client->ask("retrieve", i % 2 == 0 ? "/displays" : "/displayables", i % 3 != 0));
        std::this_thread::sleep_for(milliseconds{2});
    }
    // Meanwhile the clock is set forwards and back, by hours and by years.
    unsigned unserved = 0;
    constexpr std::int64_t hour = 3600;
    constexpr std::int64_t year = hour * 24 * 365;
    const std::int64_t jumps[] = {hour, -hour, 24 * hour, -20 * year, 10 * year, -1, 1, 0};
    for (unsigned i = 0; client->open() > 0 && i < 150; ++i) {
        faults.setClockOffset(jumps[i % std::size(jumps)]);
        simFaults.setClockOffset(jumps[(i + 3) % std::size(jumps)]);
        if (witness->call("retrieve", "/popups", R"({"display":"Driver_Display"})").status != 200) ++unserved;
        client->serveUntil([&] { return client->open() == 0; }, milliseconds{100});
    }
    unsigned wrong = 0;
    double furthest = 0;
    for (const std::uint64_t id : ids) {
        const Asked& asked = client->at(id);
        if (!asked.isOver() || asked.status != 504) ++wrong;
        furthest = std::max(furthest, std::abs(asked.took() - deadline));
    }
    display->signal(SIGCONT);
    const auto since = Clock::now();
    const bool isAlive = eventually([&] { return client->call("retrieve", "/displays").status == 200; });
    const double alive = millisecondsSince(since);
    report.fact("requests", static_cast<double>(ids.size()));
    report.atMost("not ended with 504", wrong, 0);
    report.atMost("furthest from the deadline", furthest, 500, "ms");
    report.atMost("others not served", unserved, 0);
    report.atMost("alive again after", isAlive ? alive : 1e9, 500, "ms");
    report.atMost("restarts seen", incarnations() - before, 0);
    report.atMost("ended twice", static_cast<double>(client->endedTwice() + client->foreign()), 0);
}

}  // namespace campaign
