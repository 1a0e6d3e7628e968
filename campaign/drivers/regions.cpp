#include "drivers/drivers.h"

#include <map>
#include <set>
#include <vector>

#include "harness/stage.h"
#include "kelo/uuid.h"

// Clients change region configurations while the input manager answers late and out of order, is killed and returns with nothing,
// goes away and returns with everything it had, or is stopped. Clients cancel and die meanwhile. Whenever everything is quiet
// again, what "/hmx" shows is compared with what the input manager reports.

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

// Regions that no other change has: their layer has the change's number.
std::string regions(unsigned change) {
    return R"({"infoForAllLayers":[{"layer":"change)" + std::to_string(change) + R"(","inputRegions":[{"translateX":1}]}]})";
}

std::uint64_t askChange(Client& client, const Place& place, unsigned change, unsigned kind, bool oneShot) {
    if (kind == 0) return client.ask("delete", place.path(), oneShot);
    if (kind == 1) return client.ask("update", place.path(), oneShot, R"({"regions":)" + regions(change) + "}");
    return client.ask("insert", "/regionconfigurations", oneShot,
                      R"({"display":")" + place.display + R"(","hmi":")" + place.hmi + R"(","subComponent":")" + place.component +
                          R"(","regions":)" + regions(change) + "}");
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

}  // namespace campaign
