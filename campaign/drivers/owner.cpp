#include "drivers/drivers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "harness/stage.h"
#include "harness/stall_meter.h"

// Two providers of the same path are started at the same moment. One of them must publish and say so; the other must say that it
// waits. Then the owner is killed, and the other must soon be reachable.

namespace campaign {
namespace {

// The process that answers at the path now; 0 if there is none.
pid_t ownerOf(const std::string& socket) {
    const testing_support::RawPeer peer{connectTo(socket)};
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (!peer.isOpen() || ::getsockopt(peer.fd(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return 0;
    return credentials.pid;
}

struct Said {
    unsigned published = 0;
    unsigned waiting = 0;
};

Said readLog(const std::string& file) {
    Said said;
    std::ifstream in{file};
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with(" published")) ++said.published;
        if (line.find("waiting for it to end") != std::string::npos) ++said.waiting;
    }
    return said;
}

}  // namespace

void driveOwner(const Scope& scope, Random& random, Report& report) {
    const unsigned pairs = scope.times(500, 20);
    const unsigned takeOvers = scope.times(200, 10);
    Stage stage{scope};
    const std::string path = "/owned";
    const std::string log = stage.folder() + "/hmxcampaign.log";
    unsigned doubled = 0;
    unsigned unowned = 0;
    unsigned tookOver = 0;
    double slowest = 0;
    constexpr double stall = 30;
    StallMeter meter;
    unsigned stalled = 0;
    // If the host itself stalls repeatedly, more rounds replace those that prove nothing.
    const unsigned most = 3 * pairs;
    unsigned round = 0;
    for (; round < pairs || (tookOver < takeOvers && round < most); ++round) {
        auto one = stage.startProvider(path);
        auto other = stage.startProvider(path);
        Said said;
        const bool settled = eventually([&] {
            said = readLog(log);
            return said.published + said.waiting >= 2;
        });
        if (said.published > 1) ++doubled;
        const pid_t owner = ownerOf(stage.socket(path));
        if (!settled || said.published == 0 || (owner != one->pid() && owner != other->pid())) ++unowned;
        // Takeovers come at random until there are enough of them, and in every round if the rest is needed for them. So locks
        // and sockets of all ages occur.
        if (tookOver < takeOvers && (round + takeOvers - tookOver >= pairs || random.below(2) == 0)) {
            if (owner == other->pid()) std::swap(one, other);
            meter.takeLongest();
            one->signal(SIGKILL);
            const auto since = Clock::now();
            if (!eventually([&] { return ownerOf(stage.socket(path)) == other->pid(); })) ++unowned;
            const double took = millisecondsSince(since);
            if (meter.takeLongest() > stall) {
                ++stalled;  // and is repeated
            } else {
                ++tookOver;
                slowest = std::max(slowest, took);
            }
        }
        one->kill();
        other->kill();
        std::filesystem::resize_file(log, 0);
    }
    report.fact("pairs", round);
    report.atLeast("take-overs", tookOver, takeOvers * 0.9);
    report.fact("extra time, host paused", stalled);
    report.atMost("double owners", doubled, 0);
    report.atMost("without an owner", unowned, 0);
    report.atMost("slowest take-over", slowest, 100, "ms");
}

}  // namespace campaign
