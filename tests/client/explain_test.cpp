#include "hmx/client/explain.h"

#include <gtest/gtest.h>

#include <fstream>

namespace hmx::client {
namespace {

std::vector<Json> made(const Json& rows, const Json& usual) {
    std::vector<Json> all;
    for (const Json& row : rows) {
        Json element = usual.is_null() ? Json::object() : usual;
        element["id"] = "id-" + std::to_string(all.size());
        element.update(row);
        all.push_back(std::move(element));
    }
    return all;
}

Scene sceneOf(const Json& table, const Json& row) {
    DisplayScene display{.display = table["display"]};
    display.display.update(row.value("display", Json::object()));
    display.layers = row.value("layers", table["layers"]);
    display.popups = made(row.value("popups", Json::array()), table["popup"]);
    display.regions = made(row.value("regions", Json::array()), table["region"]);
    return {.displays = {display}, .displayables = made(row.value("displayables", Json::array()), nullptr)};
}

// What is asked about: what `of` says, else the first popup, region or displayable.
Explanation explained(const Scene& scene, const Json& row) {
    const DisplayScene& display = scene.displays.front();
    if (row.contains("of")) return row["of"] == "layer" ? explainLayer(display, 0) : explainDisplay(display);
    if (row.contains("popups")) return explainPopup(scene, display.popups->front());
    if (row.contains("regions")) return explainRegion(display, 0);
    return explainDisplayable(scene, scene.displayables.front());
}

// The inspector's rules are run against the same cases.
TEST(Explain, SaysWhatTheRulesSay) {
    std::ifstream file{HMX_SOURCE_DIR "/tests/data/explain_cases.json"};
    const Json table = Json::parse(file);
    ASSERT_FALSE(table["cases"].empty());
    for (const Json& row : table["cases"]) {
        const Explanation explanation = explained(sceneOf(table, row), row);
        Json says = Json::array();
        for (const Finding& finding : explanation.findings)
            says.push_back(std::string{nameOf(finding.level)} + " " + finding.text);
        EXPECT_EQ(says, row["says"]) << row["what"];
        EXPECT_EQ(explanation.isGood, row["says"].dump().find("PROBLEM") == std::string::npos) << row["what"];
    }
}

}  // namespace
}  // namespace hmx::client
