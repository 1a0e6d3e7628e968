#include "control.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "command_line.h"
#include "stage.h"
#include "support/temporary_directory.h"

namespace {

using hmxsim_tests::Events;
using hmxsim_tests::expectAnswers;
using hmxsim_tests::Stage;

constexpr const char* controlWorld = R"({
    "displaymanager": {"displays": [{"id": 1, "name": "Left", "resolution": {"width": 9, "height": 8}}, {"id": 2, "name": "Right"}],
                       "displayables": [{"id": 7, "name": "Map"}]},
    "inputmanager": {"displays": ["Left"]},
    "popupmanager": {"displays": {"Left": [{"name": "A", "slot": "s", "requested": true, "active": true, "visible": true},
                                           {"name": "B", "slot": "s", "priorityInlayer": 3}]}}})";

TEST(Control, ChangesTheWorldOrSaysWhyNot) {
    Stage stage{controlWorld};
    const auto popups = stage.watch(stage.popups(), "/Left", R"({"visible": true})");
    expectAnswers(
        stage, stage.simulator.controlService(),
        {
            {"update", "/state/displaymanager/displays/Left", R"({"resolution": {"width": 10}, "terminal": 3})", "204"},
            {"update", "/state/displaymanager/displays/Left", R"({"terminal": null, "connector": "DP-1"})", "204"},
            {"update", "/state/displaymanager/displays/Left", R"({"resolution": {"width": "x"}})",
             "400 resolution.width: expected int, found string"},
            {"update", "/state/displaymanager/displays/Left", R"({"id": null})", "400 \"id\" is missing; Display must have it"},
            {"update", "/state/displaymanager/displays/Left", R"({"name": "Right"})",
             "409 there is another with this id or name"},
            {"update", "/state/displaymanager/displays/Left", "[]", "400 expected object, found array"},
            {"update", "/state/displaymanager/displays/Middle", "{}", "404 there is no /state/displaymanager/displays/Middle"},
            {"insert", "/state/displaymanager/displays", R"({"id": 2})", "409 there is another with this id or name"},
            {"insert", "/state/displaymanager/displays", R"({"id": 3, "nmae": "X"})",
             "400 nmae: unknown key; Display has id, internalid, name, touchSupport, terminal, compositing, resolution, "
             "updateRate, "
             "activelayers, timings, connector, planes"},
            {"update", "/state/displaymanager/displayables/Map", R"({"type": 4})", "204"},
            {"delete", "/state/displaymanager/displayables/7", "", "204"},
            {"insert", "/state/displaymanager/layerConfig", R"({"display": {"id": 1, "name": "Left"}})", "204"},
            {"insert", "/state/displaymanager/layerConfig", R"({"display": {"id": 9, "name": "Left"}})",
             "409 there is another with this id or name"},
            {"insert", "/state/inputmanager/displays", R"({"name": "Right", "proximity": true})", "204"},
            {"delete", "/state/inputmanager/displays/Left", "", "204"},
            {"insert", "/popups/Left", R"({"name": "C", "slot": "s", "priorityInlayer": 2, "requested": true})", "204"},
            {"insert", "/popups/Left", R"({"name": "C"})", "409 there is another with this id or name"},
            {"update", "/popups/Left/A", R"({"priorityInlayer": 4})", "204"},
            {"delete", "/popups/Left/A", "", "204"},
            {"update", "/faults/windowmanager", "{}", "404 there is no /faults/windowmanager"},
            {"update", "/faults/popupmanager", R"({"probability": 2})", "400 probability: not from 0 to 1"},
            {"update", "/faults/popupmanager", R"({"garble": "much"})", "400 garble: \"much\" is none of mime, noise, truncate"},
            {"insert", "/plan", R"([{"set": "x", "popup": "y"}])", "400 [0]: a step has one verb, this one has two"},
            {"retrieve", "/moon", "", "404 no such operation: retrieve /moon"},
        });
    EXPECT_EQ(
        stage.control("retrieve", "/world"),
        R"(200 {"displaymanager":{"displays":[{"id":1,"name":"Left","resolution":{"width":10,"height":8},"connector":"DP-1"},)"
        R"({"id":2,"name":"Right"}],"displayables":[],"layerConfig":[{"layersForDisplay":{"display":{"id":1,"name":"Left"}}}]},)"
        R"("inputmanager":{"displays":[{"name":"Right","proximity":true}]},"popupmanager":{"displays":{"Left":[)"
        R"({"name":"B","priorityInlayer":3,"slot":"s"},{"name":"C","priorityInlayer":2,"slot":"s","requested":true,"suppressed":false,"active":true,"visible":true}]}}})");
    // A showed; C came in above it; A rose above C; A went, and C is back.
    std::string shown;
    for (const std::string& event : popups.take())
        shown += nlohmann::json::parse(event.substr(4))[0]["name"].get<std::string>() + ' ';
    EXPECT_EQ(shown, "A C A C ");
    stage.cancel(popups);
}

TEST(Plan, RunsTheSameStepsAtTheSameTimesForTheSameSeed) {
    const std::string plan = R"({"steps": [
        {"at_ms": 100, "popup": "Left/B", "value": {"requested": true}},
        {"every_ms": 10, "jitter_ms": 25, "times": 30, "chance": 0.7, "set": "displaymanager/displays/Right",
         "values": [{"terminal": 1}, {"terminal": 2}, {"terminal": 3}]},
        {"at_ms": 50, "fault": "displaymanager", "value": {"status": 500, "probability": 0.3, "count": 5}},
        {"at_ms": 60, "delete": "/popups/Left/Nobody"}]})";
    const auto run = [&](std::uint64_t seed) {
        Stage stage{controlWorld, seed};
        const auto display = stage.watch(stage.displays(), "/displays/Right");
        const auto popups = stage.watch(stage.popups(), "/Left");
        EXPECT_EQ(stage.control("insert", "/plan", plan), "204");
        Events events;
        for (int i = 0; i < 400; ++i) {
            stage.advance(1);
            for (const auto* client : {&display, &popups}) {
                for (const std::string& event : client->take()) events.push_back(std::to_string(i) + ' ' + event);
            }
        }
        EXPECT_EQ(stage.control("retrieve", "/plan"), R"(200 {"pending":0})");
        stage.cancel(popups);
        return events;
    };
    const Events events = run(5);
    EXPECT_GT(events.size(), 5U);
    EXPECT_EQ(events, run(5));
    EXPECT_NE(events, run(6));

    Stage stage{controlWorld};
    EXPECT_EQ(stage.control("insert", "/plan", plan), "204");
    stage.advance(55);
    EXPECT_EQ(stage.control("delete", "/plan"), "204");
    EXPECT_EQ(stage.control("retrieve", "/plan"), R"(200 {"pending":0})");
}

TEST(Plan, IsRefusedWithThePlaceOfWhatIsWrong) {
    const std::pair<std::string, std::string> cases[] = {
        {"{}", "p.json:1: \"steps\" is missing"},
        {"[\n{\"at_ms\": -1, \"set\": \"x\"}]", "p.json:2: [0].at_ms: not from 0 to 604800000"},
        {"{\"steps\": [{\"at\": 1}]}",
         "p.json:1: steps[0].at: unknown key; known here: at_ms, jitter_ms, every_ms, times, chance, value, "
         "values, set, popup, fault, insert, update, delete"},
        {"[{\"at_ms\": 1}]", "p.json:1: [0]: a step needs one of set, popup, fault, insert, update, delete"},
        {"[{\"popup\": 3}]", "p.json:1: [0].popup: expected string, found int"},
        {"[{\"delete\": \"popups\"}]", "p.json:1: [0].delete: a path begins with \"/\""},
        {"[{\"delete\": \"\"}]", "p.json:1: [0].delete: a path begins with \"/\""},
        {"[{\"popup\": \"D/P\", \"value\": {\"requested\": \"yes\"}}]",
         "p.json:1: [0].value.requested: expected bool, found string"},
        {"[{\"set\": \"x\", \"values\": []}]", "p.json:1: [0].values: empty"},
        {"[{\"set\": \"x\", \"chance\": 1.5}]", "p.json:1: [0].chance: not a number from 0 to 1"},
        {"[{\"set\": \"x\", \"times\": 100000}, {\"set\": \"x\"}]", "p.json:1: [1]: more than 100000 steps"},
    };
    for (const auto& [text, complaint] : cases) {
        try {
            (void)hmxsim::readPlan(hmxsim::Document{"p.json", text}, 1);
            ADD_FAILURE() << text;
        } catch (const hmxsim::DocumentError& error) {
            EXPECT_EQ(std::string{error.what()}, complaint) << text;
        }
    }
}

TEST(RequestLog, RecordsWhatArrivedWhateverItWas) {
    const testing_support::TemporaryDirectory directory;
    const std::string file = directory / "requests.jsonl";
    Stage stage{controlWorld};
    ASSERT_FALSE(stage.log.recordTo(file));
    stage.ask(stage.popups(), "update", "/Left/A", R"({"requested": false})");
    stage.advance(30);
    stage.ask(stage.displays(), "retrieve", "/displays", "\xff\x01");
    const std::string first =
        R"({"number":1,"at_ms":0,"service":"popupmanager","command":"update","path":"/Left/A","oneShot":true,)"
        R"("clientId":"","accept":"","mimeType":"application/json","bytes":20,"body":{"requested":false}})";
    const std::string second =
        R"({"number":2,"at_ms":30,"service":"displaymanager","command":"retrieve","path":"/displays","oneShot":true,)"
        R"("clientId":"","accept":"","mimeType":"application/json","bytes":2,"bodyHex":"ff01"})";
    std::ostringstream written;
    written << std::ifstream{file}.rdbuf();
    EXPECT_EQ(written.str(), first + '\n' + second + '\n');
    EXPECT_EQ(stage.log.toJson(10'000), '[' + first + ",\n" + second + ']');
    EXPECT_EQ(stage.log.toJson(second.size() + 5), '[' + second + ']');
    EXPECT_EQ(stage.control("delete", "/requests"), "204");
    EXPECT_EQ(stage.log.toJson(10'000), "[]");
    EXPECT_TRUE(stage.log.recordTo(directory / "no/such/folder"));
}

TEST(CommandLine, IsReadOrRefused) {
    const struct {
        std::vector<const char*> arguments;
        int status;  // -1: goes on
        const char* said;
    } cases[] = {
        {{}, -1, ""},
        {{"popupmanager", "displaymanager", "--seed", "4"}, -1, ""},
        {{"--version"}, 0, "hmxsim "},
        {{"--help"}, 0, "Examples:"},
        {{"windowmanager"}, 2, "\"windowmanager\" is none of displaymanager, inputmanager, popupmanager"},
        {{"--world"}, 2, "--world"},
        {{"--seed", "-1"}, 2, "--seed"},
        {{"--mime", "text/html"}, 2, "\"text/html\" is none of"},
        {{"--make-world", ""}, 2, "the size is missing"},
        {{"--make-world", "popups=many"}, 2, "popups=many: not from 0"},
        {{"--wrold", "x"}, 2, "--wrold"},
    };
    for (const auto& [given, status, said] : cases) {
        std::vector<const char*> arguments{"hmxsim"};
        arguments.insert(arguments.end(), given.begin(), given.end());
        hmxsim::CommandLine line;
        std::ostringstream out;
        std::ostringstream err;
        const auto result = hmxsim::readCommandLine(static_cast<int>(arguments.size()), arguments.data(), line, out, err);
        EXPECT_EQ(result.value_or(-1), status) << said;
        EXPECT_NE((status == 2 ? err : out).str().find(said), std::string::npos) << out.str() << err.str();
        EXPECT_EQ((status == 2 ? out : err).str(), "");
        EXPECT_EQ(line.managers.size(), status == 0 || status == 2 ? 0U : given.empty() ? 3U : 2U);
    }
}

}  // namespace
