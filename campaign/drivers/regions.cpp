#include "drivers/drivers.h"

#include <map>
#include <set>
#include <thread>
#include <vector>

#include "harness/stage.h"
#include "kelo/uuid.h"

// Clients change region configurations while the input manager answers late and out of order, is killed and returns with nothing,
// goes away and returns with everything it had, or is stopped. Clients cancel and die meanwhile. Whenever everything is quiet
// again, what "/hmx" shows is compared with what the input manager reports.
//
// In the second driver, the bridge itself is killed while clients change configurations, and started again with what its
// supervisor has kept. What a place shows then must be the last change that its client was told of, or one that was sent later
// and of which the client was told nothing.

namespace campaign {
namespace {

struct Place {
    std::string display;
    std::string hmi;
    std::string component;

    std::string path() const {
        return "/regionconfigurations/" + kelo::uuid::createFromName(display + hmi + component).toString();
    }
    // The input manager's path for the display and HMI.
    std::string target() const { return "/" + display + "/" + hmi; }
};

std::vector<Place> allPlaces() {
    std::vector<Place> places;
    for (const std::string display : {"Driver_Display", "Co_Driver_Display"}) {
        for (const std::string component : {"", "map", "keys"}) {
            for (const std::string hmi : {"HMI_ID_ANDROID_DRIVER", "HMI_ID_ANDROID_DRIVER_POPUP"}) {
                places.push_back({display, hmi, component});
            }
        }
        places.push_back({display, "HMI_ID_ANDROID_DRIVER", "_POPUP"});  // has the same id as another one
    }
    return places;
}

std::string layerOf(unsigned change) {
    return "change" + std::to_string(change);
}

// Regions that no other change has: their layer has the change's number.
std::string regions(unsigned change, std::size_t count) {
    std::string list = R"({"translateX":1})";
    for (std::size_t i = 1; i < count; ++i) list += R"(,{"translateX":1})";
    return R"({"infoForAllLayers":[{"layer":")" + layerOf(change) + R"(","inputRegions":[)" + list + "]}]}";
}

std::uint64_t askChange(Client& client, const Place& place, unsigned change, unsigned kind, bool oneShot, std::size_t count = 1) {
    if (kind == 0) return client.ask("delete", place.path(), oneShot);
    if (kind == 1) return client.ask("update", place.path(), oneShot, R"({"regions":)" + regions(change, count) + "}");
    return client.ask("insert", "/regionconfigurations", oneShot,
                      R"({"display":")" + place.display + R"(","hmi":")" + place.hmi + R"(","subComponent":")" + place.component +
                          R"(","regions":)" + regions(change, count) + "}");
}

// The layer of the regions that a place shows; "" for none.
std::string shownAt(Client& client, const Place& place) {
    const Asked& asked = client.call("retrieve", place.path());
    if (asked.status != 200) return "";
    return nlohmann::json::parse(asked.answer).at("regions").at("infoForAllLayers").at(0).at("layer").get<std::string>();
}

// "<display>/<hmi> <layer>" of each region.
using Regions = std::set<std::string>;

Regions shown(Client& client, const std::vector<Place>& places) {
    Regions found;
    for (const Place& place : places) {
        const Asked& asked = client.call("retrieve", place.path());
        if (asked.status != 200) continue;
        const auto object = nlohmann::json::parse(asked.answer);
        found.insert("/" + object.at("display").get<std::string>() + "/" + object.at("hmi").get<std::string>() + " " +
                     object.at("regions").at("infoForAllLayers").at(0).at("layer").get<std::string>());
    }
    return found;
}

Regions had(const Stage& stage, const std::vector<Place>& places) {
    Client client{stage.socket("/hmxinputmanager"), "/hmxinputmanager"};
    Regions found;
    for (const Place& place : places) {
        const auto sorted = nlohmann::json::parse(client.get(place.target()));
        for (const auto& region : sorted.at("regionInfoSorted")) {
            const auto layer = region.at("layer").get<std::string>();
            if (layer.starts_with("change")) found.insert(place.target() + " " + layer);  // not from the world file
        }
    }
    return found;
}

}  // namespace

void driveRegions(const Scope& scope, Random& random, Report& report) {
    const unsigned rounds = scope.times(200, 12);
    Stage stage{scope};
    const auto bridge = stage.startBridge();
    auto sim = stage.startSim();
    stage.awaitServing();
    const std::vector<Place> places = allPlaces();
    const auto witness = stage.connect();
    auto client = stage.connect();
    const auto control = [&](const std::string& rule) { stage.connect("/hmxsim")->call("update", "/faults/inputmanager", rule); };
    unsigned changes = 0;
    unsigned accepted = 0;
    unsigned compared = 0;
    unsigned differences = 0;
    std::map<std::string, unsigned> events;
    for (unsigned round = 0; round < rounds; ++round) {
        control(R"({"delay_ms":)" + std::to_string(random.below(5)) + R"(,"jitter_ms":)" + std::to_string(random.below(40)) +
                R"(,"seed":)" + std::to_string(round) + "}");
        const auto change = [&] {
            const std::uint64_t id = askChange(*client, places[random.below(places.size())], ++changes,
                                               static_cast<unsigned>(random.below(4)), random.below(4) != 0);
            if (random.below(8) == 0) client->cancel(id);
            if (random.below(3) == 0) client->serveUntil([] { return false; }, milliseconds{random.below(12)});
        };
        const auto changeSome = [&](unsigned most) {
            for (auto count = random.below(most) + 1; count > 0; --count) change();
        };
        changeSome(20);
        switch (random.below(5)) {
            case 0:
                ++events["killed"];
                sim->signal(SIGKILL);
                changeSome(4);
                sim->kill();
                sim = stage.startSim();
                stage.awaitServing();
                changeSome(10);
                break;
            case 1:
                ++events["closed"];
                control(R"({"close":true,"now":true,"reopen_ms":)" + std::to_string(1 + random.below(60)) + "}");
                changeSome(10);
                break;
            case 2:
                ++events["stopped"];
                sim->stop();
                changeSome(10);
                client->serveUntil([] { return false; }, milliseconds{random.below(100)});
                sim->signal(SIGCONT);
                break;
            case 3:
                ++events["client gone"];
                client->close();
                client = stage.connect();
                break;
            default:
                ++events["none"];
        }
        client->serveUntil([] { return false; }, milliseconds{random.below(30)});
        stage.awaitServing();
        control("{}");
        const bool isQuiet = eventually([&] { return stage.status().at("gauges").at("regionChangesUnderWay") == 0; });
        if (!isQuiet) throw Failure{"changes that never end:\n" + stage.log()};
        Regions ofBridge, ofManager;
        // Sending again after a return may not have begun yet.
        eventually(
            [&] {
                try {
                    ofBridge = shown(*witness, places);
                    ofManager = had(stage, places);
                    return ofBridge == ofManager;
                } catch (const Failure&) {
                    return false;  // the input manager is about to go or to return
                }
            },
            milliseconds{5000});
        compared += static_cast<unsigned>(ofManager.size());
        std::vector<std::string> differing;
        std::set_symmetric_difference(ofBridge.begin(), ofBridge.end(), ofManager.begin(), ofManager.end(),
                                      std::back_inserter(differing));
        differences += static_cast<unsigned>(differing.size());
        for (const std::string& region : differing) {
            report.note("round " + std::to_string(round) + ": " + region +
                        (ofBridge.contains(region) ? " is shown" : " is there"));
        }
        client->serveUntil([] { return false; }, milliseconds{1});
        for (const auto& [id, asked] : client->all()) accepted += asked.status == 200 || asked.status == 204 ? 1 : 0;
        witness->forgetEnded();
        client->close();
        client = stage.connect();
    }
    report.fact("rounds", rounds);
    for (const auto& [event, count] : events) report.fact(event, count);
    report.fact("changes", changes);
    report.fact("compared", compared);
    report.atLeast("accepted", accepted, rounds);
    report.atMost("differences", differences, 0);
}

void driveKept(const Scope& scope, Random& random, Report& report) {
    constexpr std::size_t large = 500;
    struct Sent {
        std::uint64_t id;
        std::string layer;  // "": a deletion
    };
    const unsigned kills = scope.times(200, 12);
    Stage stage{scope};
    Supervisor supervisor{stage.notifyAddress()};
    std::vector<Place> places = allPlaces();
    std::erase_if(places, [](const Place& place) { return place.component == "_POPUP"; });  // every place with an id of its own
    auto sim = stage.startSim();
    auto bridge = stage.startBridge(supervisor);
    stage.awaitServing();
    std::vector<std::string> sure(places.size());  // what each place showed at the end of the last round
    unsigned changes = 0, told = 0, untold = 0, lost = 0, back = 0, differences = 0;
    for (unsigned round = 0; round < kills; ++round) {
        stage.connect("/hmxsim")->call(
            "update", "/faults/inputmanager",
            R"({"delay_ms":0,"jitter_ms":)" + std::to_string(random.below(20)) + R"(,"seed":)" + std::to_string(round) + "}");
        const auto client = stage.connect();
        std::vector<std::vector<Sent>> sent(places.size());
        const auto end = Clock::now() + std::chrono::microseconds{random.below(60'000)};
        while (Clock::now() < end) {
            const auto at = random.below(places.size());
            const auto kind = static_cast<unsigned>(random.below(4));
            const std::size_t count = random.below(20) == 0 ? large : 1;
            const std::uint64_t id = askChange(*client, places[at], ++changes, kind, true, count);
            sent[at].push_back({id, kind == 0 ? "" : layerOf(changes)});
            client->serveUntil([] { return false; }, milliseconds{random.below(3)});
        }
        bridge->kill();
        client->serveUntil([] { return false; }, milliseconds{1});  // what it had still answered
        while (!supervisor.take(0).empty()) {
        }
        if (random.below(4) == 0) {
            sim->kill();
            sim = stage.startSim();
        }
        bridge = stage.startBridge(supervisor);
        if (random.below(4) == 0) {  // at any step of its start
            std::this_thread::sleep_for(std::chrono::microseconds{random.below(60'000)});
            bridge->kill();
            while (!supervisor.take(0).empty()) {
            }
            bridge = stage.startBridge(supervisor);
        }
        stage.awaitServing();
        const auto witness = stage.connect();
        for (std::size_t at = 0; at < places.size(); ++at) {
            std::set<std::string> possible{sure[at]};
            for (const auto& [id, layer] : sent[at]) {
                const Asked& asked = client->at(id);
                if (asked.isOver() && asked.status / 100 == 2) {
                    ++told;
                    possible = {layer};
                } else if (!asked.isOver() || asked.status == 503 || asked.status == 504) {
                    ++untold;
                    possible.insert(layer);
                }
            }
            sure[at] = shownAt(*witness, places[at]);
            if (possible.contains(sure[at])) continue;
            ++(sure[at].empty() ? lost : back);
            report.note("round " + std::to_string(round) + ": " + places[at].path() + " shows '" + sure[at] + "', not '" +
                        *possible.rbegin() + "'");
        }
        const bool isQuiet = eventually([&] { return stage.status().at("gauges").at("regionChangesUnderWay") == 0; });
        if (!isQuiet || shown(*witness, places) != had(stage, places)) ++differences;
    }
    report.fact("kills", kills);
    report.fact("changes", changes);
    report.fact("untold", untold);
    report.atLeast("told", told, kills);
    report.atMost("lost", lost, 0);
    report.atMost("back", back, 0);
    report.atMost("differences", differences, 0);
    report.atMost("descriptors kept", static_cast<double>(supervisor.kept.size()), 1);
}

}  // namespace campaign
