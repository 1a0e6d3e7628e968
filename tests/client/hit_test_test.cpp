#include "hmx/client/hit_test.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "hmx/client/input_regions.h"

namespace hmx::client {
namespace {

// "1 receives at 30,55 with focus, 0 kept off; told 2": what happened, topmost first.
std::string outcome(const HitResult& result, TouchPoint touch) {
    constexpr const char* fates[] = {"receives", "drops", "kept off"};
    std::string text;
    for (const Hit& hit : result.under) {
        const bool moved = hit.fate == Fate::receives && (hit.delivered.x != touch.x || hit.delivered.y != touch.y);
        text += (text.empty() ? "" : ", ") + std::to_string(hit.region) + " " + fates[static_cast<int>(hit.fate)];
        if (hit.margin) text += " in margin";
        if (moved) text += " at " + std::to_string(hit.delivered.x) + "," + std::to_string(hit.delivered.y);
        if (hit.takesFocus) text += " with focus";
    }
    for (const Hit& hit : result.notified) text += "; told " + std::to_string(hit.region);
    return text;
}

// The inspector's hit test is run against the same cases.
TEST(HitTest, FollowsTheRules) {
    std::ifstream file{HMX_SOURCE_DIR "/tests/data/hit_cases.json"};
    const Json table = Json::parse(file);
    ASSERT_FALSE(table["cases"].empty());
    for (const Json& each : table["cases"]) {
        std::vector<HitRegion> regions;
        for (const Json& region : each["regions"]) regions.push_back(asHitRegion(region, table["layers"]));
        const TouchPoint touch{each["touch"]["x"], each["touch"]["y"]};
        EXPECT_EQ(outcome(hitTest(regions, touch), touch), each["outcome"]) << each["what"];
    }
}

}  // namespace
}  // namespace hmx::client
