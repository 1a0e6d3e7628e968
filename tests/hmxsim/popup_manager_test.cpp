#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "stage.h"

namespace {

using hmxsim_tests::expectAnswers;
using hmxsim_tests::Stage;
using nlohmann::json;

// A and B compete with each other and with C, whose priority is theirs or higher; D has a slot of its own, E none.
constexpr const char* popupWorld = R"({"popupmanager": {"displays": {
    "Left": [{"name": "A", "slot": "s", "priorityInlayer": 5}, {"name": "B", "slot": "s", "priorityInlayer": 5},
             {"name": "C", "slot": "s", "priorityInlayer": 9}, {"name": "D", "slot": "t"}, {"name": "E"}],
    "Right": [{"name": "A", "slot": "s", "requested": true, "suppressed": true}]}}})";

// The popups of the left display that are in a state: "A! B- C" is A visible, B suppressed, C active but not visible.
std::string states(Stage& stage) {
    const std::string answer = stage.ask(stage.popups(), "retrieve", "/Left");
    std::string text;
    for (const auto& popup : json::parse(answer.substr(4))) {
        const bool active = popup.value("active", false);
        const bool suppressed = popup.value("suppressed", false);
        const bool visible = popup.value("visible", false);
        EXPECT_FALSE(active && suppressed) << popup;
        if (!active && !suppressed && !visible) continue;
        text += (text.empty() ? "" : " ") + popup.value("name", "") + (visible ? "!" : "") + (suppressed ? "-" : "");
    }
    return text;
}

TEST(PopupManager, LetsTheFirstOfTheHighestPriorityShow) {
    const struct {
        const char* popup;
        const char* change;
        const char* after;
    } steps[] = {
        {"A", R"({"requested": true})", "A!"},
        {"B", R"({"requested": true})", "A! B-"},  // a tie: the earlier one stays
        {"C", R"({"requested": true})", "A- B- C!"},
        {"D", R"({"requested": true})", "A- B- C! D!"},
        {"E", R"({"visible": true})", "A- B- C! D!"},  // not requested: nothing to show
        {"C", R"({"visible": false})", "A- B- C D!"},  // still the one, but hidden
        {"C", R"({"requested": false})", "A! B- D!"},
        {"A", R"({"requested": false})", "B! D!"},
        {"A", R"({"requested": true})", "A- B! D!"},  // requested anew: it is the later one now
        {"B", R"({"requested": true, "requestData": "x"})", "A- B! D!"},
        {"C", R"({"requested": true})", "A- B- C! D!"},  // a new request shows again
        {"C", R"({"requested": false})", "A- B! D!"},
        {"B", R"({"requested": false})", "A! D!"},
        {"D", R"({"requested": false})", "A!"},
    };
    Stage stage{popupWorld};
    for (const auto& [popup, change, after] : steps) {
        const std::string answer = stage.ask(stage.popups(), "update", std::string{"/Left/"} + popup, change);
        EXPECT_EQ(json::parse(answer.substr(4)).value("name", ""), popup);
        EXPECT_EQ(states(stage), after) << popup << ' ' << change;
    }
    // The other display was none of it, and the file's own states stand until something about them changes.
    EXPECT_EQ(stage.ask(stage.popups(), "retrieve", "/Right/A"),
              R"(200 {"name":"A","slot":"s","requested":true,"suppressed":true})");
}

TEST(PopupManager, FiltersAndRefuses) {
    Stage stage{popupWorld};
    expectAnswers(stage, stage.popups(),
                  {
                      {"retrieve", "/Left", R"({"slot": "t"})", R"(200 [{"name":"D","slot":"t"}])"},
                      {"retrieve", "/Left", R"({"visible": false})", "200 []"},  // what a popup does not have matches nothing
                      {"retrieve", "/Right", R"({"requested": true, "slot": "s"})",
                       R"(200 [{"name":"A","slot":"s","requested":true,"suppressed":true}])"},
                      {"retrieve", "/Middle", "", "404 no such display: Middle"},
                      {"retrieve", "/Left/X%2FY", "", "404 no such popup: Left/X/Y"},
                      {"retrieve", "/Left/%zz", "", "400 badly encoded path: /Left/%zz"},
                      {"update", "/Right/B", R"({"requested": true})", "404 no such popup: Right/B"},
                      {"insert", "/Left", "{}", "404 no such operation: insert /Left"},
                      {"retrieve", "/", "", "404 no such operation: retrieve /"},
                  });
    const std::string refusal = stage.ask(stage.popups(), "update", "/Left/A", R"({"requested": 1})");
    EXPECT_EQ(refusal.substr(0, 33), "400 PopupStateUpdate: requested: ");
    EXPECT_EQ(states(stage), "");
}

}  // namespace
