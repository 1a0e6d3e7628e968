#include "drivers/drivers.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "harness/stage.h"
#include "harness/stall_meter.h"
#include "kelo/uuid.h"

// One client, or as many as may connect, make the bridge keep as much as it will. Meanwhile another client keeps asking the same
// upstream service. The bridge's memory may grow only a little, and the other client must be served almost as fast as before.
// Each attack has its own bridge, and its own world with a thousand displays.

namespace campaign {
namespace {

using testing_support::RawPeer;

constexpr unsigned streams = 2000;
constexpr std::size_t large = 900'000;
constexpr std::size_t mostOfOneMiB = 16;
constexpr std::size_t mostOfAllMiB = 64;

// The other client, which asks and watches; also observes the bridge's memory. Thread: any.
class Witness {
public:
    struct Seen {
        std::string refusal;        // the last one
        std::vector<double> waits;  // of those questions during which the host did not stall
        unsigned unserved = 0;
        std::size_t memoryKiB = 0;

        double p99() {
            if (waits.empty()) throw Failure{"the witness was not heard once"};
            std::sort(waits.begin(), waits.end());
            return waits[waits.size() * 99 / 100];
        }
    };

    Witness(const Stage& stage, const Process& bridge, std::string path)
        : bridge_{bridge}, path_{std::move(path)}, client_{stage.connect()}, thread_{[this] { run(); }} {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() {
        isOver_ = true;
        thread_.join();
    }

    // What was seen since the last call.
    Seen take() {
        const std::lock_guard lock{mutex_};
        return std::exchange(seen_, {});
    }

private:
    void run() {
        constexpr double stall = 30;
        StallMeter meter;
        std::uint64_t watched = client_->ask("retrieve", path_, false);
        client_->serveUntil([&] { return client_->at(watched).values > 0; });
        while (!isOver_) {
            meter.takeLongest();
            const Asked asked = client_->call("retrieve", path_);
            const bool isStalled = meter.takeLongest() > stall;
            const Asked watch = client_->at(watched);
            client_->forgetEnded();
            if (watch.isOver()) watched = client_->ask("retrieve", path_, false);
            {
                const std::lock_guard lock{mutex_};
                for (const Asked& end : {asked, watch}) {
                    if (end.status == 200) continue;
                    ++seen_.unserved;
                    seen_.refusal = std::to_string(end.status) + " " + end.answer;
                }
                if (asked.isOver() && !isStalled) seen_.waits.push_back(asked.took());
                seen_.memoryKiB = std::max(seen_.memoryKiB, bridge_.memoryKiB());
            }
            std::this_thread::sleep_for(milliseconds{2});
        }
    }

    const Process& bridge_;
    const std::string path_;
    const std::unique_ptr<Client> client_;
    std::mutex mutex_;
    Seen seen_;
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

struct Ground {
    const Stage& stage;
    const Process& bridge;
    const Process& popupManager;
    Client& control;
    Report& report;
    std::string display;  // the path of one display
    double startKiB = 0;

    double grownMiB(std::size_t memoryKiB) const { return (static_cast<double>(memoryKiB) - startKiB) / 1024; }
    double limit(const char* name) const { return stage.status().at("limits").at(name); }
    std::unique_ptr<Client> client() const { return std::make_unique<Client>(stage.socket("/hmx")); }
    // A client that never reads, and sends as much as the bridge accepts.
    RawPeer peer(const Bytes& hello) const {
        RawPeer peer{stage.socket("/hmx")};
        const timeval patience{1, 0};
        ::setsockopt(peer.fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        peer.send(hello);
        return peer;
    }
    void changeDisplays(unsigned times) const {
        for (unsigned i = 0; i < times; ++i) {
            control.call("update", "/state/displaymanager/displays/Driver_Display", R"({"terminal":)" + std::to_string(i) + "}");
            std::this_thread::sleep_for(milliseconds{100});
        }
    }
};

double answeredWith(const Client& client, int status) {
    return static_cast<double>(std::count_if(client.all().begin(), client.all().end(),
                                             [&](const auto& entry) { return entry.second.status == status; }));
}

// Asks as often as the bridge reads it. Each question has a different answer, most of which comes from upstream.
void askAndLeaveUnread(RawPeer& peer, unsigned count, bool oneShot) {
    for (unsigned i = 1; i <= count; ++i) {
        if (!peer.send(requestFrame(i, "retrieve", i % 2 == 0 ? "/displays" : "/layerconfigurations", oneShot,
                                    R"({"limit":)" + std::to_string(900 + i % 100) + "}")))
            return;
    }
}

void longName(Ground& ground) {
    Bytes body = fieldMap({"$version", 1}, {{"$service-path", "/hmx"}});
    ++body[0];  // one field more than there are
    appendCborText(body, "$application");
    for (const std::size_t byte : {std::size_t{0x7a}, std::size_t{0}, large >> 16U, large >> 8U, large})
        body.push_back(static_cast<std::uint8_t>(byte));
    body.resize(body.size() + large, 'n');
    RawPeer peer = ground.peer(frame(hello, 0, 0, body));
    for (unsigned i = 1; i <= streams && peer.send(requestFrame(i, "retrieve", ground.display, false)); ++i) {
    }
    const auto open = [&] { return ground.stage.status().at("published").at(0).at("openRequests").get<double>(); };
    eventually([&] { return open() >= streams / 2.0; });
    ground.report.atLeast("streams open", open(), streams / 2.0);
    ground.changeDisplays(5);
}

void unreadStreams(Ground& ground) {
    RawPeer peer = ground.peer(helloFrame("/hmx"));
    askAndLeaveUnread(peer, streams, false);
    ground.changeDisplays(10);
}

void unreadLists(Ground& ground) {
    RawPeer peer = ground.peer(helloFrame("/hmx"));
    askAndLeaveUnread(peer, 1000, true);
    std::this_thread::sleep_for(milliseconds{1000});
}

// Keeps as many requests in flight as one client may, for a while, and reads the answers.
void manyRequests(Ground& ground, const std::string& path) {
    const auto client = ground.client();
    client->keepsAnswers = false;
    double answered = 0;
    double failed = 0;
    client->onAnswer = [&](std::uint64_t, const Asked& asked) { ++(asked.status == 200 ? answered : failed); };
    for (const auto end = Clock::now() + milliseconds{2000}; Clock::now() < end;) {
        while (client->open() < 1000) client->ask("retrieve", path);
        client->serveUntil([] { return false; }, milliseconds{0});
        client->forgetEnded();
    }
    ground.report.fact("answered", answered);
    ground.report.atMost("failed", failed, 0);
}

void quickRequests(Ground& ground) {
    manyRequests(ground, ground.display);
}

void largeAnswers(Ground& ground) {
    manyRequests(ground, "/displays");
}

void unknownParameters(Ground& ground) {
    constexpr unsigned count = 100;
    std::string parameters = "{\"k0\":1";
    for (unsigned i = 1; i < 80'000; ++i) parameters += ",\"k" + std::to_string(i) + "\":1";
    const auto client = ground.client();
    for (unsigned i = 0; i < count; ++i) client->ask("retrieve", "/displays", false, parameters + "}");
    client->serveUntil([&] { return client->open() == 0; }, milliseconds{5000});
    ground.report.atMost("not refused", count - answeredWith(*client, 400), 0);
}

void largeUpdates(Ground& ground) {
    const std::string query = R"({"display":"Driver_Display"})";
    const auto watcher = ground.client();
    const auto id = nlohmann::json::parse(watcher->get("/popups", query)).at("data").at(0).at("id").get<std::string>();
    const auto watched = watcher->ask("retrieve", "/popups", false, query);
    watcher->serveUntil([&] { return watcher->at(watched).values > 0; });
    const auto client = ground.client();
    ground.popupManager.stop();
    for (unsigned i = 0; i < 6; ++i)
        client->ask("update", "/popups/" + id, true,
                    R"({"requestData":")" + std::string(large, '0' + static_cast<char>(i)) + "\"}");
    std::this_thread::sleep_for(milliseconds{300});
    ground.popupManager.signal(SIGCONT);
    const bool haveEnded = client->serveUntil([&] { return client->open() == 0; });
    watcher->serveUntil([] { return false; }, milliseconds{200});
    ground.report.fact("done", answeredWith(*client, 200));
    ground.report.atMost("without an end", haveEnded ? 0 : 1, 0);
    ground.report.atMost("watches lost", watcher->at(watched).isOver() || watcher->isLost() ? 1 : 0, 0);
}

void largeRegions(Ground& ground) {
    constexpr unsigned count = 60;
    const std::string display = "Driver_Display";
    const std::string hmi = "HMI_ID_ANDROID_DRIVER";
    const auto client = ground.client();
    std::vector<std::uint64_t> ids;
    for (unsigned i = 0; i < count; ++i) {
        ids.push_back(client->ask("insert", "/regionconfigurations", true,
                                  R"({"display":")" + display + R"(","hmi":")" + hmi + R"(","subComponent":")" +
                                      std::to_string(i) + R"(","regions":{"infoForAllLayers":[{"layer":")" +
                                      std::string(large, 'l') + R"(","inputRegions":[{"translateX":1}]}]}})"));
    }
    client->serveUntil([&] { return client->open() == 0; }, milliseconds{20'000});
    const double accepted = answeredWith(*client, 200) + answeredWith(*client, 201);
    ground.report.atLeast("accepted", accepted, 1);
    ground.report.atMost("neither accepted nor 507", count - accepted - answeredWith(*client, 507), 0);
    for (unsigned i = 0; i < count; ++i) {
        if (client->at(ids[i]).status / 100 == 2)
            client->call("delete",
                         "/regionconfigurations/" + kelo::uuid::createFromName(display + hmi + std::to_string(i)).toString());
    }
    double left = 0;
    eventually([&] { return (left = ground.grownMiB(ground.bridge.memoryKiB())) <= 4; });
    ground.report.atMost("left after deleting", left, 4, "MiB");
}

// As many clients as may connect, minus a few.
std::vector<RawPeer> allPeers(Ground& ground) {
    std::vector<RawPeer> peers;
    const auto count = static_cast<unsigned>(ground.limit("connections")) - 6;
    for (unsigned i = 0; i < count; ++i) peers.push_back(ground.peer(helloFrame("/hmx")));
    return peers;
}

void incompleteFrames(Ground& ground) {
    Bytes most = requestFrame(1, "update", "/popups", true, std::string(1'048'000, 'x'));
    most.pop_back();
    auto peers = allPeers(ground);
    const auto since = Clock::now();
    for (RawPeer& peer : peers) peer.send(most);
    ground.report.atMost("newcomers not let in", ground.client()->call("retrieve", "/$platform/status").status == 200 ? 0 : 1, 0);
    const double patience = ground.limit("incompleteFrameMilliseconds");
    std::this_thread::sleep_until(since + milliseconds{static_cast<int>(patience)});
    unsigned held = 0;
    for (RawPeer& peer : peers) held += peer.seesEnd() ? 0 : 1;
    ground.report.atMost("not ended", held, 0);
    ground.report.fact("ended after", millisecondsSince(since), "ms");
}

void unreadStreamsOfAll(Ground& ground) {
    auto peers = allPeers(ground);
    for (RawPeer& peer : peers) askAndLeaveUnread(peer, 8, false);
    ground.changeDisplays(10);
}

struct Attack {
    const char* name;
    void (*make)(Ground& ground);
    std::size_t mostMiB;
};

constexpr Attack attacks[] = {
    {"a long name", &longName, mostOfOneMiB},
    {"streams unread", &unreadStreams, mostOfOneMiB},
    {"lists unread", &unreadLists, mostOfOneMiB},
    {"quick requests", &quickRequests, mostOfOneMiB},
    {"large answers", &largeAnswers, mostOfOneMiB},
    {"unknown parameters", &unknownParameters, mostOfOneMiB},
    {"large updates", &largeUpdates, mostOfOneMiB},
    {"large regions", &largeRegions, mostOfOneMiB},
    {"incomplete frames of all", &incompleteFrames, mostOfAllMiB},
    {"streams of all unread", &unreadStreamsOfAll, mostOfAllMiB},
};

}  // namespace

void driveGreed(const Scope& scope, Random& /*random*/, Report& report) {
    for (const Attack& attack : attacks) {
        Stage stage{scope};
        const std::string world = stage.folder() + "/world.json";
        stage
            .start({scope.programs + "/hmxsim", "--make-world", "displays=1000,displayables=1,popups=2,regions=1"}, {},
                   "world.json")
            ->waitForEnd(10'000);
        const auto sim = stage.startSim({"--world", world, "displaymanager"});
        const auto control = stage.connect("/hmxsim");
        const auto popupManager = stage.startSim({"--world", world, "inputmanager", "popupmanager"});
        const auto bridge = stage.startBridge();
        stage.awaitServing();
        const auto displays = nlohmann::json::parse(stage.connect()->get("/displays"));
        const std::string display = "/displays/" + displays.at("data").at(0).at("id").get<std::string>();
        Witness witness{stage, *bridge, display};
        std::this_thread::sleep_for(milliseconds{1000});
        Witness::Seen quiet = witness.take();
        report.fact(std::string{attack.name} + ": quiet p99", quiet.p99(), "ms");
        Ground ground{stage, *bridge, *popupManager, *control, report, display, static_cast<double>(quiet.memoryKiB)};
        attack.make(ground);
        std::this_thread::sleep_for(milliseconds{200});
        Witness::Seen seen = witness.take();
        // A wait that nobody would notice is acceptable, even if it is many times the wait without an attack.
        constexpr double unnoticed = 50;
        report.fact("p99", seen.p99(), "ms");
        report.atMost("as a multiple", seen.p99() / std::max(quiet.p99(), unnoticed), 5, "times");
        report.atMost("not served", seen.unserved, 0);
        if (seen.unserved > 0) report.note(std::string{attack.name} + ": the witness heard " + seen.refusal);
        report.atMost("memory above the start", ground.grownMiB(seen.memoryKiB), static_cast<double>(attack.mostMiB), "MiB");
    }
}

}  // namespace campaign
