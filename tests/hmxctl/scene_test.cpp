// The tree, the hit verb's view of regions, and completion.

#include <gtest/gtest.h>

#include "args.h"
#include "completion.h"
#include "failure.h"
#include "hmx/client/input_regions.h"
#include "scripted_services.h"
#include "tree.h"

namespace hmxctl_test {
namespace {

using hmxctl::DisplayScene;

TEST(Tree, PutsEverythingInItsPlace) {
    DisplayScene scene{
        .display = Json::parse(R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"D","resolution":{"width":1920}})")};
    scene.layers = Json::parse(
        R"([{"id":1,"name":"Map","zpos":1},{"id":2,"name":"Front"},{"id":3,"name":"Popups","zpos":9},{"id":4,"zpos":9}])");
    scene.popups = {
        Json::parse(R"({"id":"aaaaaaaa-0","name":"Low","popupLayerCompositing":"Popups","priorityInlayer":1})"),
        Json::parse(R"({"id":"bbbbbbbb-0","name":"High","popupLayerCompositing":"Popups","priorityInlayer":5,"visible":true})"),
        Json::parse(R"({"id":"cccccccc-0","name":"Logical","popupLayerCompositing":"?","popupLayerLogical":"Map"})"),
        Json::parse(R"({"id":"dddddddd-0","name":"Loose\u001b[31m"})")};
    scene.regions = {
        Json::parse(
            R"({"regionID":7,"hmiName":"HMI","layer":"Map","bounds":{"pointMin":{"x":1,"y":2},"width":3,"height":4},"exclusive":true})"),
        Json::parse(R"({"regionID":8,"layer":"4"})"), Json::parse(R"({"layer":"Gone"})")};
    const std::vector<std::string> expected{
        "D  1920x?  19243473",
        "├─ layer Popups  z 9  #3",
        "│  ├─ popup High  visible  priority 5  bbbbbbbb",
        "│  └─ popup Low  priority 1  aaaaaaaa",
        "├─ layer #4  z 9",
        "│  └─ region #8  no bounds",
        "├─ layer Map  z 1  #1",
        "│  ├─ popup Logical  cccccccc",
        "│  └─ region HMI #7  3x4 at 1,2  exclusive",
        "├─ layer Front  no z  #2",
        "├─ popup Loose\\x1b[31m  dddddddd",
        "└─ region unnamed  no bounds  layer Gone is not shown",
    };
    EXPECT_EQ(hmxctl::sceneLines({hmxctl::makeScene(scene)}, false), expected);

    scene.popups.reset();
    scene.regions = std::vector<Json>{};
    EXPECT_EQ(hmxctl::sceneLines({hmxctl::makeScene(scene)}, false).back(), "└─ layer Front  no z  #2");
}

class Scene : public testing::Test {
protected:
    Scene() {
        const std::string id = "19243473-0126-5f4b-b1bf-4879152c72e5";
        const std::string layersId = "a8a59dda-1e57-56df-8839-c48ee9dcb923";
        const std::string display = R"({"id":")" + id + R"(","name":"Driver_Display","resolution":{"height":100,"width":200}})";
        const std::string layers =
            R"({"id":")" + layersId + R"(","name":"","layers":[{"id":1,"name":"Map","zpos":1},{"id":2,"name":"Top","zpos":2}]})";
        ScriptedApi& hmx = services.hmx();
        hmx.on("retrieve /displays", page({display}));
        hmx.on("retrieve /displays/" + id, display);
        hmx.on("retrieve /layerconfigurations", page({layers}));
        hmx.on("retrieve /layerconfigurations/" + layersId, layers);
        hmx.on("retrieve /popups", page({}));
    }

    ScriptedServices services;
};

constexpr const char* regions =
    R"({"regionInfoSorted":[{"regionID":1,"hmiName":"H","layer":"Map","bounds":{"pointMin":{"x":0,"y":0},"width":50,"height":50}},)"
    R"({"regionID":2,"layer":"2","bounds":{"pointMin":{"x":40,"y":0},"width":50,"height":50},"exclusive":true,"translateInput":true,"translateX":-40}]})";

TEST_F(Scene, HitNamesReceiverAndCovered) {
    services.service("/hmxinputmanager").on("retrieve /Driver_Display", regions);
    const Json hit = Json::parse(services.run({"hit", "Driver_Display", "45", "10", "-o", "json"}).out);
    EXPECT_EQ(hit["receiver"]["region"]["regionID"], 2);
    EXPECT_EQ(hit["receiver"]["delivered"]["x"], 5);
    ASSERT_EQ(hit["covered"].size(), 1U);
    EXPECT_EQ(hit["covered"][0]["region"]["hmiName"], "H");
    EXPECT_EQ(hit["covered"][0]["receives"], false);
    const std::string table = services.run({"hit", "Driver_Display", "45", "10"}).out;
    EXPECT_NE(table.find("receives it  #2      2      2  50x50 at 40,0  5,10  exclusive, takes the focus, translated"),
              std::string::npos)
        << table;
    EXPECT_EQ(services.run({"hit", "Driver_Display", "150", "10"}).out, "no input region there\n");
    EXPECT_NE(services.run({"hit", "Driver_Display", "200", "-1"}).err.find("outside the display"), std::string::npos);
    EXPECT_EQ(services.run({"hit", "Driver", "1", "1"}).code, ExitCode::notFound);
}

TEST_F(Scene, LayersThatAreSwitchedOffTakeNoTouch) {
    services.service("/hmxinputmanager").on("retrieve /Driver_Display", regions);
    services.service("/hmxdisplaymanager")
        .on("retrieve /layerConfig", R"([{"layersForDisplay":{"display":{"id":1,"name":"Driver_Display"},"layers":)"
                                     R"({"infoForAllLayers":[{"id":1,"active":true},{"id":2,"active":false}]}}}])");
    const Json hit = Json::parse(services.run({"hit", "Driver_Display", "45", "10", "-o", "json"}).out);
    EXPECT_EQ(hit["receiver"]["region"]["regionID"], 1);
    EXPECT_TRUE(hit["covered"].empty());
    EXPECT_NE(services.run({"tree"}).out.find("layer Top  z 2  #2  inactive"), std::string::npos);
}

TEST_F(Scene, ExplainFindsWhatWasNamed) {
    services.service("/hmxinputmanager").on("retrieve /Driver_Display", regions);
    const std::string driver = "19243473-0126-5f4b-b1bf-4879152c72e5";
    const std::vector<std::tuple<std::string, ExitCode, std::string>> cases{
        {"displays/Driver_Display", ExitCode::ok, "displays/Driver_Display can show pictures.\nWARNING"},
        {"displays/1924", ExitCode::ok, "OK       Its resolution is 200x100."},
        {"layerconfigurations/Driver_Display", ExitCode::ok, "OK       layer Map: It is at z 1, below Top."},
        {"regions/Driver_Display/2", ExitCode::ok, "regions/Driver_Display/2 (#2) receives touches."},
        {"regions/Driver_Display/H", ExitCode::ok,
         "WARNING  No touch reaches 20 % of it: these are kept by #2 above it.\n"
         "         → Move or shrink"},
        {"regions/Driver_Display/3", ExitCode::notFound, "regions of the display: 1, 2"},
        {"regions/Driver/1", ExitCode::notFound, "did you mean 'Driver_Display'?"},
        {"regions/Driver_Display", ExitCode::usage, "which region?"},
        {"popups/Driver_Display/None", ExitCode::notFound, "no such element"},
    };
    for (const auto& [word, code, text] : cases) {
        const hmxctl_test::Outcome outcome = services.run({"explain", word.c_str()});
        EXPECT_EQ(outcome.code, code) << word;
        EXPECT_NE((outcome.out + outcome.err).find(text), std::string::npos) << word << ": " << outcome.out << outcome.err;
    }
    const Json document = Json::parse(services.run({"explain", "regions/Driver_Display/1", "-o", "json"}).out);
    EXPECT_EQ(document["findings"][0]["rule"], "region.partly-covered");
    EXPECT_EQ(document["findings"][0]["values"], Json({{"percent", 20}, {"others", {"#2"}}}));
}

TEST_F(Scene, TreeLeavesOutWhatIsAway) {
    const hmxctl_test::Outcome without = services.run({"tree"});
    EXPECT_EQ(without.code, ExitCode::ok);
    EXPECT_NE(without.err.find("touch regions left out: no service /hmxinputmanager"), std::string::npos) << without.err;
    EXPECT_NE(without.err.find("inactive layers not told apart: no service /hmxdisplaymanager"), std::string::npos)
        << without.err;
    EXPECT_EQ(services.run({"hit", "Driver_Display", "1", "1"}).code, ExitCode::serviceAbsent);
    services.service("/hmxinputmanager").on("retrieve /Driver_Display", regions);
    const Json tree = Json::parse(services.run({"tree", "-o", "json"}).out);
    EXPECT_EQ(tree["displays"][0]["layers"][0]["regions"][0]["regionID"], 2);
    EXPECT_EQ(services.run({"tree", "Cluster"}).code, ExitCode::notFound);
}

class FixedNames final : public hmxctl::NameSource {
public:
    std::vector<std::string> elements(const hmxctl::Resource& resource) override {
        if (resource.name == "displays") return {"Driver_Display", "Cluster_Display"};
        if (resource.name == "popups") return {"Driver_Display/Phone"};
        return {};
    }
    std::vector<std::string> services() override { return {"/hmx", "/hmxsim"}; }
    std::vector<std::string> channels(const std::string& service) override {
        return {service == "/hmx" ? "KELO_RUNTIME" : "HMXSIM"};
    }
};

TEST(Completion, OffersWhatCanComeNext) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {"hmxctl wa", "watch wait"},
        {"hmxctl -o js", "json jsonl"},
        {"hmxctl -o json --mime ms", "msgpack"},
        {"hmxctl list ", "displays displayables layerconfigurations popups"},
        {"hmxctl insert ", "regionconfigurations"},
        {"hmxctl --timeout 3s get displa", "displays/ displayables/"},
        {"hmxctl watch displ", "displays displayables"},
        {"hmxctl get displays/", "displays/Driver_Display displays/Cluster_Display"},
        {"hmxctl explain re", "regions/ regionconfigurations/"},
        {"hmxctl diff --ignore x li", "live"},
        {"hmxctl explain regions/C", "regions/Cluster_Display/"},
        {"hmxctl get popups/Dri", "popups/Driver_Display/Phone"},
        {"hmxctl list popups act", "active="},
        {"hmxctl list popups active=", "active=true active=false"},
        {"hmxctl list popups display=D", "display=Driver_Display"},
        {"hmxctl list displays fields=name,term", "fields=name,terminal"},
        {"hmxctl insert regionconfigurations display=", "display=Co_Driver_Display display=Driver_Display"},
        {"hmxctl update popups/Driver_Display/Phone req", "requestData= requested="},
        {"hmxctl call /hmx", "/hmx /hmxsim"},
        {"hmxctl call /hmx ins", "insert"},
        {"hmxctl trace ", "/hmx /hmxsim KELO_RUNTIME="},
        {"hmxctl trace /hmxsim ", "HMXSIM="},
        {"hmxctl trace KELO_RUNTIME=",
         "KELO_RUNTIME=0 KELO_RUNTIME=1 KELO_RUNTIME=2 KELO_RUNTIME=3 KELO_RUNTIME=4 KELO_RUNTIME=5"},
        {"hmxctl hit C", "Cluster_Display"},
        {"hmxctl hit Cluster_Display ", ""},
        {"hmxctl sim fa", "fault"},
        {"hmxctl completion ", "bash zsh fish"},
        {"hmxctl help unk", ""},
        {"hmxctl nonsense ", ""},
        {"hmxctl watch displays --no-r", "--no-reconnect"},
        {"hmxctl list displays --no-", "--no-color --no-validate"},
        {"hmxctl get 'displays/Driv", "displays/Driver_Display"},
        {"hmxctl", ""},
    };
    for (const auto& [line, words] : cases) {
        FixedNames names;
        std::string offered;
        for (const hmxctl::Candidate& candidate : hmxctl::complete(line, names))
            offered += (offered.empty() ? "" : " ") + candidate.word;
        EXPECT_EQ(offered, words) << line;
    }
}

TEST(Duration, ReadsWhatPeopleWrite) {
    const std::vector<std::pair<const char*, int>> cases{{"3s", 3000}, {"500ms", 500},  {"2", 2000},      {"1.5s", 1500},
                                                         {"0.5ms", 1}, {"2m", 120'000}, {"1h", 3'600'000}};
    for (const auto& [text, milliseconds] : cases) EXPECT_EQ(hmxctl::parseDuration(text).count(), milliseconds) << text;
    for (const char* bad : {"", "s", "-1s", "0", "0ms", "3 s", "3x", "nan", "inf", "1e300h"}) {
        EXPECT_THROW((void)hmxctl::parseDuration(bad), hmxctl::Failure) << bad;
    }
}

}  // namespace
}  // namespace hmxctl_test
