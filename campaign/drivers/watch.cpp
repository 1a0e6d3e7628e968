#include "drivers/drivers.h"

#include <array>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "harness/questions.h"
#include "harness/watcher.h"

// Each upstream service is a process of its own that changes all the time: values change, elements appear and disappear.
// Meanwhile these processes are killed and restarted, each at times of its own. At the end they are replaced by services with the
// initial world, which do not change. Whatever the watchers saw before, they must all end up with exactly that world.

namespace campaign {
namespace {

// Changes for ten minutes, longer than any process lives here.
Json scenarioOf(std::string_view manager) {
    if (manager == "displaymanager") {
        Json extra = Json::parse(R"({"id":77,"name":"Extra_Display"})");
        return {
            {{"at_ms", 1},
             {"every_ms", 7},
             {"times", 60'000},
             {"set", "displaymanager/displays/Driver_Display"},
             {"values", {{{"terminal", 1}}, {{"terminal", 2}}, {{"terminal", 3}}}}},
            {{"at_ms", 2}, {"every_ms", 40}, {"times", 15'000}, {"insert", "/state/displaymanager/displays"}, {"value", extra}},
            {{"at_ms", 21}, {"every_ms", 40}, {"times", 15'000}, {"delete", "/state/displaymanager/displays/Extra_Display"}}};
    }
    if (manager == "popupmanager") {
        Json extra = Json::parse(R"({"name":"Extra_Popup","popupLayerLogical":"PHONE","priorityInlayer":5})");
        return {{{"at_ms", 1},
                 {"every_ms", 9},
                 {"times", 60'000},
                 {"popup", "Driver_Display/Incoming_Call"},
                 {"values", {{{"requested", true}}, {{"requested", false}}}}},
                {{"at_ms", 3}, {"every_ms", 30}, {"times", 20'000}, {"insert", "/popups/Driver_Display"}, {"value", extra}},
                {{"at_ms", 18}, {"every_ms", 30}, {"times", 20'000}, {"delete", "/popups/Driver_Display/Extra_Popup"}}};
    }
    return Json::array();
}

class Upstream {
public:
    Upstream(const Stage& stage, std::string_view manager) : stage_{stage}, manager_{manager} {
        file_ = stage.folder() + "/" + manager_ + ".scenario.json";
        std::ofstream{file_} << scenarioOf(manager);
        restart(true);
    }
    void restart(bool isChanging) {
        process_.reset();
        std::vector<std::string> arguments{manager_};
        if (isChanging) arguments.insert(arguments.begin(), {"--scenario", file_});
        process_ = stage_.startSim(arguments);
    }
    void kill() { process_->kill(); }

private:
    const Stage& stage_;
    const std::string manager_;
    std::string file_;
    std::unique_ptr<Process> process_;
};

}  // namespace

void driveWatch(const Scope& scope, Random& random, Report& report) {
    const unsigned deaths = scope.times(100, 20);
    Stage stage{scope};
    auto bridge = stage.startBridge();
    std::vector<std::unique_ptr<Upstream>> upstreams;
    for (const std::string_view manager : managers) upstreams.push_back(std::make_unique<Upstream>(stage, manager));
    stage.awaitServing();

    const std::string driver = R"({"display":"Driver_Display"})";
    const std::array<std::pair<const char*, std::string>, 4> lists{
        {{"/displays", ""}, {"/displayables", ""}, {"/layerconfigurations", ""}, {"/popups", driver}}};
    std::vector<std::unique_ptr<RawWatcher>> raw;
    std::vector<std::unique_ptr<ProgramWatcher>> programs;
    for (const auto& [path, payload] : lists) {
        raw.push_back(std::make_unique<RawWatcher>(stage, path, payload));
        std::vector<std::string> arguments{scope.programs + "/hmxctl", "watch", path + 1, "-o", "jsonl"};
        if (!payload.empty()) arguments.emplace_back("display=Driver_Display");
        programs.push_back(std::make_unique<ProgramWatcher>(stage, std::string{"watch-"} + (path + 1), arguments));
    }
    const auto serve = [&](milliseconds duration) {
        const auto end = Clock::now() + duration;
        do {
            for (auto& watcher : raw) watcher->serve();
            for (auto& watcher : programs) watcher->serve();
            std::this_thread::sleep_for(milliseconds{1});
        } while (Clock::now() < end);
    };
    serve(milliseconds{100});
    for (unsigned death = 0; death < deaths; ++death) {
        const auto which = random.below(6);
        const auto pause = milliseconds{random.below(60)};
        if (which < 3) {
            upstreams[which]->kill();
            serve(pause);
            upstreams[which]->restart(true);
        } else if (which == 3) {
            bridge->kill();
            serve(pause);
            bridge = stage.startBridge();
        } else if (which == 4) {
            raw[random.below(raw.size())]->restart();
        } else {
            programs[random.below(programs.size())]->restart();
        }
        serve(milliseconds{10 + random.below(80)});
    }
    for (auto& upstream : upstreams) upstream->restart(false);
    stage.awaitServing();
    const auto since = Clock::now();
    std::vector<Elements> truth;
    {
        Client client{stage.socket("/hmx")};
        bool distinct = false;
        for (const auto& [path, payload] : lists)
            truth.push_back(elementsOf(Json::parse(client.get(path, payload)).at("data"), distinct));
    }
    unsigned wrong = 0;
    const auto countWrong = [&] {
        wrong = 0;
        for (std::size_t i = 0; i < lists.size(); ++i) {
            if (raw[i]->state() != truth[i]) ++wrong;
            if (programs[i]->state() != truth[i]) ++wrong;
        }
        return wrong;
    };
    while (countWrong() > 0 && millisecondsSince(since) < 5000) serve(milliseconds{5});
    const double converged = millisecondsSince(since);
    unsigned duplicates = 0;
    unsigned outOfTurn = 0;
    unsigned seen = 0;
    for (std::size_t i = 0; i < lists.size(); ++i) {
        // Upstream, a layer configuration contains its display. The resource does not show the display's changes.
        const bool hasUnseenChanges = lists[i].first == std::string_view{"/layerconfigurations"};
        duplicates += (hasUnseenChanges ? 0 : raw[i]->repeats()) + raw[i]->duplicates() + programs[i]->duplicates();
        outOfTurn += programs[i]->outOfTurn();
        seen += raw[i]->values() + programs[i]->events();
        report.note(std::string{lists[i].first} + ": " + std::to_string(raw[i]->repeats()) + " repeats, duplicates " +
                    std::to_string(raw[i]->duplicates()) + " in bytes, " + std::to_string(programs[i]->duplicates()) +
                    " in the program");
    }
    report.fact("deaths", deaths);
    report.fact("watchers", static_cast<double>(raw.size() + programs.size()));
    report.fact("events", seen);
    report.atMost("not at the true state", wrong, 0);
    report.atMost("duplicates", duplicates, 0);
    report.atMost("out of turn", outOfTurn, 0);
    report.atMost("converged after", converged, 2000, "ms");
}

}  // namespace campaign
