#include "stage.h"

namespace {

using namespace stage;

const std::string mapId = "c3b2447b-2e70-546a-a732-f2325e426ca6";
const std::string mapUri = R"("hmx/regionconfigurations/)" + mapId + '"';
const std::string layerA = R"({"infoForAllLayers":[{"layer":"A"}]})";
const std::string layerB = R"({"infoForAllLayers":[{"layer":"B"}]})";
const std::string insertMap =
    R"(insert {"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","subComponent":"map","regions":)" + layerA + "}";

std::string map(const std::string& regions) {
    return R"({"id":")" + mapId + R"(","name":"regionConfig_Driver_Display_HMI_ID_ANDROID_DRIVER_map","uri":)" + mapUri +
           R"(,"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":)" + regions + R"(,"subComponent":"map"})";
}

// With the configuration `mapId` in the cache, and one who watches it.
class WatchedRegion : public testing::Test {
protected:
    WatchedRegion() {
        ask(insertMap, caller);
        stage.answer(0, "{}");
        caller.take();
        watcherKey = ask("element " + mapId, watcher);
        EXPECT_EQ(watcher.take(), Events{map(layerA)});
        stage.lines.take();
    }
    ~WatchedRegion() override { EXPECT_EQ(stage.api.open(), 0U); }

    void* ask(const std::string& request, Downstream& downstream) { return stage.ask(request, downstream); }
    std::string now() {
        Downstream reader;
        ask("element " + mapId, reader);
        return reader.events.front();
    }

    const std::string updateToB = "update " + mapId + R"( {"regions":)" + layerB + "}";
    const std::string updateToC = "update " + mapId + R"( {"regions":{}})";
    const std::string remove = "delete " + mapId;
    Downstream caller;
    Downstream watcher{.oneShot = false, .finishes = false};
    Stage stage{"regionconfigurations"};
    void* watcherKey;
};

TEST_F(WatchedRegion, TheCallerHearsBeforeTheWatchersAndBothOnlyWhenUpstreamHasAccepted) {
    Downstream both{.oneShot = false, .finishes = false};  // one book for both, to see the order
    stage.cancel(watcherKey);
    ask("element " + mapId, both);
    both.take();
    ask(updateToB, both);
    EXPECT_TRUE(both.events.empty());
    EXPECT_EQ(now(), map(layerA));  // what is on its way is not there yet
    stage.answer(1, "{}");
    EXPECT_EQ(both.take(), (Events{mapUri, map(layerB)}));
    stage.answer(1, "{}");  // said twice, it is done and heard of once
    stage.answer(1, "completed");
    EXPECT_EQ(both.take(), (Events{"completed", "gone"}));
    ask(remove, both);
    stage.answer(2, "{}");
    EXPECT_EQ(both.take(), (Events{"null", "404 UNKNOWN", "gone"}));
    stage.answer(2, "completed");
    EXPECT_EQ(both.take(), (Events{"completed", "gone"}));
}

TEST_F(WatchedRegion, WatchersHearOfChangesOnlyAndUntilTheyCancel) {
    ask(insertMap, caller);
    stage.answer(1, "{}");
    EXPECT_TRUE(watcher.events.empty());  // replaced by its equal
    ask(updateToB, caller);
    stage.answer(2, "{}");
    EXPECT_EQ(watcher.take(), Events{map(layerB)});
    stage.cancel(watcherKey);
    EXPECT_EQ(watcher.take(), Events{"gone"});
    ask(updateToC, caller);
    stage.answer(3, "{}");
    EXPECT_TRUE(watcher.events.empty());
    EXPECT_EQ(caller.take(), (Events{mapUri, "gone", mapUri, "gone", mapUri, "gone"}));
}

TEST_F(WatchedRegion, ChangesUnderWayAtATimeAreAppliedAsTheirAnswersCome) {
    Downstream second;
    ask(remove, caller);
    ask(updateToB, second);
    stage.answer(1, "{}");
    EXPECT_EQ(watcher.take(), (Events{"404 UNKNOWN", "gone"}));
    stage.answer(2, "{}");
    EXPECT_EQ(second.take(), (Events{mapUri, "gone"}));
    EXPECT_EQ(now(), map(layerB));
    // Two deletions of one configuration: both are accepted, the second finds nothing to erase.
    ask(remove, caller);
    ask(remove, second);
    stage.answer(3, "{}");
    stage.lines.take();
    stage.answer(4, "{}");
    EXPECT_EQ(second.take(), (Events{"null", "gone"}));
    EXPECT_EQ(stage.lines.take(), Events{"3 No entry for id"});
    EXPECT_EQ(now(), "404 UNKNOWN");
}

TEST_F(WatchedRegion, AChangeThatIsCancelledStillReachesTheCacheButNotItsCaller) {
    stage.cancel(ask(updateToB, caller));
    EXPECT_EQ(caller.take(), Events{"gone"});
    EXPECT_TRUE(stage.api.cancelled.empty());
    stage.answer(1, "{}");
    EXPECT_TRUE(caller.events.empty());
    EXPECT_EQ(watcher.take(), Events{map(layerB)});
    stage.cancel(ask(remove, caller));
    stage.answer(2, "503 lost");
    EXPECT_EQ(caller.take(), Events{"gone"});
    EXPECT_EQ(now(), map(layerB));
}

TEST_F(WatchedRegion, AChangeThatIsAcceptedAndHasNoCallerIsOverUpstreamToo) {
    Downstream open{.oneShot = false, .finishes = false};
    const auto handle = [&](std::size_t index) { return stage.api.sent.at(index).handle; };
    stage.cancel(ask(updateToB, open));
    EXPECT_TRUE(stage.api.cancelled.empty());  // it may not have been done yet
    stage.answer(1, "{}");
    EXPECT_EQ(stage.api.cancelled, std::vector{handle(1)});
    void* const key = ask(updateToC, open);
    stage.answer(2, "{}");
    stage.cancel(key);
    EXPECT_EQ(stage.api.cancelled, (std::vector{handle(1), handle(2)}));
    EXPECT_EQ(open.take(), (Events{"gone", mapUri, "gone"}));
    EXPECT_EQ(watcher.take(), (Events{map(layerB), map("{}")}));
}

TEST_F(WatchedRegion, TheCacheOutlivesTheInputManager) {
    ask(updateToB, caller);
    stage.answer(1, "503 lost");
    stage.detach();
    EXPECT_EQ(caller.take(), (Events{"503 lost", "gone"}));
    const std::pair<std::string, std::string> refused[] = {
        {insertMap, "InputBridge::insertRegionconfigurationObject no input client available"},
        {updateToB, "InputBridge::updateRegionconfigurationObject no input client available"},
        {remove, "InputBridge::deleteRegionconfigurationObject no input client available"},
    };
    for (const auto& [request, text] : refused) {
        ask(request, caller);
        EXPECT_EQ(caller.take(), (Events{"503 [" + text + "]", "gone"}));
        EXPECT_EQ(stage.lines.take().back(), "4 " + text);
    }
    EXPECT_EQ(now(), map(layerA));
    support::FakeKeloApi returned;
    stage.attach(returned);
    ask(updateToB, caller);
    stage.answer(returned, 0, "{}");
    EXPECT_EQ(watcher.take(), Events{map(layerB)});
}

}  // namespace
