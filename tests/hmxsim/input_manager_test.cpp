#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "stage.h"

namespace {

using hmxsim_tests::expectAnswers;
using hmxsim_tests::Stage;
using nlohmann::json;

constexpr const char* touchWorld = R"({
    "displaymanager": {"layerConfig": [{"layersForDisplay": {"display": {"id": 1, "name": "Left"}, "layers": {"infoForAllLayers": [
        {"id": 7, "name": "Back", "zpos": 1}, {"id": 8, "name": "Front", "zpos": 9}]}}}]},
    "inputmanager": {"displays": ["Plain", {"name": "Left", "proximity": true, "force": {"forceSupported": true},
        "regions": [{"hmi": "H", "infoForAllLayers": [{"layer": "Back", "inputRegions": [{"regionID": 4}, {"dropEvent": true}]}]}]}]}})";

TEST(InputManager, KeepsTheStateOfEachDisplay) {
    Stage stage{touchWorld};
    expectAnswers(
        stage, stage.inputs(),
        {
            {"retrieve", "/Plain/proximity", "", "200 false"},
            {"retrieve", "/Left/proximity", "", "200 true"},
            {"update", "/Plain/proximity", "true", "204"},
            {"retrieve", "/Plain/proximity", "", "200 true"},
            {"retrieve", "/Left/force", "", R"(200 {"forceSupported":true})"},
            {"retrieve", "/Plain/force", "", R"(200 {"forceSupported":false,"status":"STATUS_OK"})"},
            {"update", "/Left/shutter", "true", "204"},
            {"retrieve", "/Left/shutter", "", R"(200 {"shutterActive":true,"status":"STATUS_OK"})"},
            {"update", "/Left/power", "false", "204"},
            {"update", "/Left/hapticfeedback", R"({"hapticFeedback": 3, "point": {"x": 1, "y": 2}})", "204"},
            {"retrieve", "/Right/proximity", "", "404 no such display: Right"},
            {"update", "/Right/power", "true", "404 no such display: Right"},
            {"retrieve", "/Left/power", "", R"(200 {"regionInfoSorted":[],"hapticInfoSorted":[]})"},  // an HMI without regions
        });
    EXPECT_EQ(stage.ask(stage.inputs(), "update", "/Left/power", "1").substr(0, 9), "400 bool:");
    const json left = json::parse(stage.control("retrieve", "/world").substr(4))["inputmanager"]["displays"][1];
    EXPECT_EQ(left["power"], false);
    EXPECT_EQ(left["lastHaptic"], json::parse(R"({"hapticFeedback": 3, "point": {"x": 1, "y": 2}})"));
}

// "4@Back 1@Back" for the input regions that a getter gives, in its order.
std::string regions(Stage& stage, const std::string& path) {
    std::string text;
    const json answer = json::parse(stage.ask(stage.inputs(), "retrieve", path).substr(4));
    for (const auto& region : answer["regionInfoSorted"]) {
        text += (text.empty() ? "" : " ") + region["hmiName"].get<std::string>() + std::to_string(region["regionID"].get<int>()) +
                '@' + region["layer"].get<std::string>();
    }
    return text;
}

TEST(InputManager, KeepsRegionsByHmiAndComponentAndSortsThemByLayer) {
    Stage stage{touchWorld};
    const auto put = [&](const char* hmi, const char* info) {
        EXPECT_EQ(stage.ask(stage.inputs(), "update", std::string{"/Left/"} + hmi, info), "204") << info;
    };
    EXPECT_EQ(regions(stage, "/Left"), "H4@Back H1@Back");  // ids are made up where there are none
    put("H",
        R"({"subComponent": "c", "infoForAllLayers": [{"layer": "Front", "inputRegions": [{}]}, {"layer": "?", "inputRegions": [{}]}]})");
    put("K", R"({"infoForAllLayers": [{"layer": "8", "inputRegions": [{}], "hapticRegions": [{"hapticRegion": 1}]}]})");
    EXPECT_EQ(regions(stage, "/Left"), "H2@Front K5@8 H4@Back H1@Back H3@?");
    EXPECT_EQ(regions(stage, "/Left/K"), "K5@8");
    // The same again changes nothing; another set of the same component replaces the old one alone.
    const auto watcher = stage.watch(stage.inputs(), "/Left");
    EXPECT_EQ(watcher.take().size(), 1U);
    put("K", R"({"infoForAllLayers": [{"layer": "8", "inputRegions": [{}], "hapticRegions": [{"hapticRegion": 1}]}]})");
    EXPECT_TRUE(watcher.take().empty());
    put("H", R"({"subComponent": "c", "infoForAllLayers": [{"layer": "Back", "inputRegions": [{"exclusive": true}]}]})");
    EXPECT_EQ(watcher.take().size(), 1U);
    EXPECT_EQ(regions(stage, "/Left"), "K5@8 H4@Back H1@Back H2@Back");
    // An empty set clears that component's; a layer that moves to the front moves its regions.
    put("H", R"({"infoForAllLayers": []})");
    EXPECT_EQ(regions(stage, "/Left"), "K5@8 H2@Back");
    EXPECT_EQ(stage.control("update", "/state/displaymanager/layerConfig/Left",
                            R"({"layers": {"infoForAllLayers": [{"id": 7, "name": "Back", "zpos": 3}]}})"),
              "204");
    EXPECT_EQ(regions(stage, "/Left"), "H2@Back K5@8");
    EXPECT_EQ(watcher.take().size(), 2U);
    EXPECT_EQ(stage.ask(stage.inputs(), "update", "/Left/H", R"({"infoForAllLayers": [{"layer": 3}]})").substr(0, 57),
              "400 HapticAndInputInfoPerHMI: infoForAllLayers[0].layer: ");
}

}  // namespace
