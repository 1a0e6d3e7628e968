#include "hmx/client/hit_test.h"

#include <gtest/gtest.h>

#include <string>

namespace hmx::client {
namespace {

// A region of 100x100 pixels at (left, 0) of the layer at `zpos`.
HitRegion square(int zpos, int left) {
    HitRegion region;
    region.zpos = zpos;
    region.layer = static_cast<std::size_t>(zpos);
    region.hasBounds = true;
    region.left = left;
    region.width = 100;
    region.height = 100;
    return region;
}

template <class Change>
HitRegion with(HitRegion region, Change change) {
    change(region);
    return region;
}

const auto exclusive = [](HitRegion& region) { region.exclusive = true; };
const auto drops = [](HitRegion& region) { region.dropEvent = true; };
const auto notified = [](HitRegion& region) { region.notifyOutside = true; };
const auto margin = [](HitRegion& region) { region.hitOutside = TouchPoint{10, 0}; };

// "1 receives, 0 keptOff; told 2": what happened, topmost first.
std::string outcome(const std::vector<HitRegion>& regions, TouchPoint touch) {
    constexpr const char* fates[] = {"receives", "drops", "keptOff"};
    const HitResult result = hitTest(regions, touch);
    std::string text;
    for (const Hit& hit : result.under) {
        text += (text.empty() ? "" : ", ") + std::to_string(hit.region) + " " + fates[static_cast<int>(hit.fate)] +
                (hit.margin ? " in margin" : "");
    }
    for (const Hit& hit : result.notified) text += "; told " + std::to_string(hit.region);
    return text;
}

TEST(HitTest, FollowsTheRules) {
    struct Case {
        const char* what;
        std::vector<HitRegion> regions;
        TouchPoint touch;
        const char* outcome;
    };
    const HitRegion hidden = with(square(1, 0), [](HitRegion& region) { region.zpos.reset(); });
    const std::vector<Case> cases{
        {"nothing there", {square(1, 200)}, {50, 50}, ""},
        {"left and top edge are inside", {square(1, 0)}, {0, 0}, "0 receives"},
        {"right edge is outside", {square(1, 0)}, {100, 50}, ""},
        {"bottom edge is outside", {square(1, 0)}, {50, 100}, ""},
        {"no bounds", {with(square(1, 0), [](HitRegion& region) { region.hasBounds = false; })}, {50, 50}, ""},
        {"empty bounds", {with(square(1, 0), [](HitRegion& region) { region.width = 0; })}, {0, 0}, ""},
        {"the higher layer first", {square(1, 0), square(9, 0)}, {50, 50}, "1 receives, 0 receives"},
        {"within a layer the first one first", {square(1, 0), square(1, 50)}, {60, 50}, "0 receives, 1 receives"},
        {"negative z", {square(-5, 0), square(-1, 0)}, {50, 50}, "1 receives, 0 receives"},
        {"exclusive keeps the touch", {square(1, 0), with(square(9, 0), exclusive)}, {50, 50}, "1 receives, 0 keptOff"},
        {"exclusive below keeps nothing from above",
         {with(square(1, 0), exclusive), square(9, 0)},
         {50, 50},
         "1 receives, 0 receives"},
        {"exclusive in the middle",
         {square(1, 0), with(square(5, 0), exclusive), square(9, 0)},
         {50, 50},
         "2 receives, 1 receives, 0 keptOff"},
        {"exclusive elsewhere", {square(1, 0), with(square(9, 500), exclusive)}, {50, 50}, "0 receives"},
        {"a drop on top", {square(1, 0), with(square(9, 0), drops)}, {50, 50}, "1 drops, 0 keptOff"},
        {"a drop below", {with(square(1, 0), drops), square(9, 0)}, {50, 50}, "1 receives, 0 drops"},
        {"told of a touch outside", {square(5, 0), with(square(9, 500), notified)}, {50, 50}, "0 receives; told 1"},
        {"not told of one inside", {with(square(5, 0), notified)}, {50, 50}, "0 receives"},
        {"told from below", {with(square(1, 500), notified), square(5, 0)}, {50, 50}, "1 receives; told 0"},
        {"not told below an exclusive receiver",
         {with(square(1, 500), notified), with(square(5, 0), exclusive)},
         {50, 50},
         "1 receives"},
        {"told above an exclusive receiver",
         {with(square(9, 500), notified), with(square(5, 0), exclusive)},
         {50, 50},
         "1 receives; told 0"},
        {"not told below a drop", {with(square(1, 500), notified), with(square(5, 0), drops)}, {50, 50}, "1 drops"},
        {"a near miss", {with(square(1, 0), margin)}, {105, 50}, "0 receives in margin"},
        {"a miss by one too many", {with(square(1, 0), margin)}, {110, 50}, ""},
        {"a near miss to the left", {with(square(1, 100), margin)}, {90, 50}, "0 receives in margin"},
        {"no margin upwards", {with(square(1, 0), margin)}, {50, -1}, ""},
        {"a neighbour of the layer goes before a margin", {with(square(1, 0), margin), square(1, 100)}, {105, 50}, "1 receives"},
        {"one of another layer does not",
         {with(square(9, 0), margin), square(1, 100)},
         {105, 50},
         "0 receives in margin, 1 receives"},
        {"one of another layer with the same zpos does not",
         {with(square(1, 0), margin), with(square(1, 100), [](HitRegion& region) { region.layer = 7; })},
         {105, 50},
         "0 receives in margin, 1 receives"},
        {"a layer that is not shown", {hidden, square(1, 0)}, {50, 50}, "1 receives"},
    };
    for (const Case& each : cases) EXPECT_EQ(outcome(each.regions, each.touch), each.outcome) << each.what;
}

TEST(HitTest, MovesCoordinatesAndFocus) {
    HitRegion moved = square(9, 0);
    moved.translateX = -20;
    moved.translateY = 5;
    EXPECT_EQ(hitTest({moved}, {50, 50}).under.front().delivered.x, 50) << "only with translateInput";
    moved.translateInput = true;
    const HitResult result = hitTest({square(1, 0), moved}, {50, 50});
    ASSERT_EQ(result.under.size(), 2U);
    EXPECT_EQ(result.under[0].delivered.x, 30);
    EXPECT_EQ(result.under[0].delivered.y, 55);
    EXPECT_EQ(result.under[1].delivered.x, 50) << "each region sees its own";
    EXPECT_TRUE(result.under[0].takesFocus);
    EXPECT_FALSE(result.under[1].takesFocus) << "the topmost receiver alone";
    moved.keepFocus = true;
    EXPECT_FALSE(hitTest({moved}, {50, 50}).under.front().takesFocus);
}

TEST(HitTest, EdgesBeyondTheRangeOfInt) {
    HitRegion far = square(1, 2'147'483'600);
    far.translateInput = true;
    far.translateX = 2'147'483'647;
    const HitResult result = hitTest({far}, {2'147'483'647, 0});
    ASSERT_EQ(result.under.size(), 1U);
    EXPECT_EQ(result.under.front().delivered.x, 2'147'483'647);
}

}  // namespace
}  // namespace hmx::client
