#include <unistd.h>

#include <chrono>
#include <deque>
#include <thread>

#include "stage.h"

namespace {

using namespace stage;
using kelo::supervisor::KeptState;

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

// The configuration `mapId` is in the cache, and one client watches it.
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
    Downstream both{.oneShot = false, .finishes = false};  // one record for both, to see the order
    stage.cancel(watcherKey);
    ask("element " + mapId, both);
    both.take();
    ask(updateToB, both);
    EXPECT_TRUE(both.events.empty());
    EXPECT_EQ(now(), map(layerA));  // a change in progress is not visible yet
    stage.answer(1, "{}");
    EXPECT_EQ(both.take(), (Events{mapUri, map(layerB)}));
    stage.answer(1, "{}");  // repeated: the change is applied and reported only once
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
    EXPECT_TRUE(watcher.events.empty());  // replaced by an equal one
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

// Two changes are sent, "B" and "C" for updates and "-" for a deletion. Each answer names its change and says whether it is
// accepted.
TEST_F(WatchedRegion, TheLastThatWasSentAndIsAcceptedDecidesWhicheverAnswerComesFirst) {
    const struct {
        const char* sent;
        const char* answers;
        std::string now;
    } cases[] = {
        {"BC", "B+C+", map("{}")},   {"BC", "C+B+", map("{}")},     {"BC", "B+C!", map(layerB)},   {"BC", "C!B+", map(layerB)},
        {"BC", "C+B!", map("{}")},   {"B-", "-+B+", "404 UNKNOWN"}, {"B-", "B!-+", "404 UNKNOWN"}, {"B-", "-!B+", map(layerB)},
        {"-B", "B+-+", map(layerB)}, {"-B", "-+B+", map(layerB)},   {"-B", "B!-+", "404 UNKNOWN"}, {"--", "-+-+", "404 UNKNOWN"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(std::string{each.sent} + " " + each.answers);
        const std::size_t first = stage.api.sent.size();
        Downstream callers[2];
        for (int i = 0; i < 2; ++i) {
            ask(each.sent[i] == 'B' ? updateToB : each.sent[i] == 'C' ? updateToC : remove, callers[i]);
        }
        const bool isTwice = each.sent[0] == each.sent[1];
        for (const std::size_t at : {0U, 2U}) {
            const std::size_t which = isTwice ? at / 2 : each.answers[at] == each.sent[0] ? 0 : 1;
            stage.answer(first + which, each.answers[at + 1] == '+' ? "{}" : "500 no");
            const std::string done = each.sent[which] == '-' ? "null" : mapUri;
            EXPECT_EQ(callers[which].take(), (Events{each.answers[at + 1] == '+' ? done : "500 no", "gone"}));
        }
        EXPECT_EQ(now(), each.now);
        EXPECT_EQ(stage.lines.take().back() == "3 No entry for id", isTwice);
        ask(insertMap, caller);
        stage.answer(first + 2, "{}");
    }
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
    EXPECT_TRUE(stage.api.cancelled.empty());  // it may not have been carried out yet
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
        EXPECT_EQ(caller.take(), (Events{"503 [" + text + ", request not sent]", "gone"}));
        EXPECT_EQ(stage.lines.take().back(), "4 " + text);
    }
    EXPECT_EQ(now(), map(layerA));
}

TEST_F(WatchedRegion, AHandlerThatThrowsKeepsNothingOutOfTheCache) {
    caller.throws = true;
    ask(updateToB, caller);
    stage.answer(1, "{}");
    EXPECT_EQ(caller.take(), (Events{mapUri, "gone"}));
    EXPECT_EQ(watcher.take(), Events{map(layerB)});
}

TEST_F(WatchedRegion, ARefusalIsLogged) {
    ask(updateToB, caller);
    stage.answer(1, "500 no");
    EXPECT_EQ(stage.lines.take().back(),
              "3 InputBridge::CUpdateInputRegionsResponseHandler::onError received error for uri "
              "hmx/regionconfigurations/" +
                  mapId + " error: 500 no");
}

std::string insert(const std::string& component, const std::string& hmi = "HMI_ID_ANDROID_DRIVER") {
    return R"(insert {"display":"Driver_Display","hmi":")" + hmi + R"(","subComponent":")" + component + R"(","regions":)" +
           layerA + "}";
}

// What was sent through an API, as "<component>:<layers>", with "(empty)" for no regions.
Events sentTo(const support::FakeKeloApi& api) {
    Events all;
    for (const auto& sent : api.sent) {
        const auto body = Json::parse(sent.request.payload().text());
        all.push_back(body.value("subComponent", "") + ":" +
                      (body["infoForAllLayers"].empty() ? "-" : body["infoForAllLayers"][0].value("layer", "")));
    }
    return all;
}

TEST_F(WatchedRegion, WhatIsKeptIsSentAgainWhenTheInputManagerReturns) {
    const auto insertNow = [&](const std::string& component, const std::string& answer) {
        Downstream done;
        ask(insert(component), done);
        stage.answer(stage.api.sent.size() - 1, answer);
    };
    insertNow("one", "{}");
    insertNow("two", "{}");
    insertNow("lost", "503 /hmxinputmanager: connection lost, outcome unknown");
    insertNow("refused", "500 no");
    ask(updateToB, caller);
    stage.answer(stage.api.sent.size() - 1, "{}");
    watcher.take();
    stage.detach();
    support::FakeKeloApi returned;
    stage.lines.take();
    stage.attach(returned);
    // In the order of insertion; regions that nobody is shown are cleared.
    EXPECT_EQ(sentTo(returned), (Events{"map:B", "one:A", "two:A", "lost:-"}));
    ask(updateToC, caller);  // a change meanwhile wins, although it is answered first
    stage.answer(returned, 4, "{}");
    EXPECT_EQ(watcher.take(), Events{map("{}")});
    stage.answer(returned, 0, "{}");
    EXPECT_EQ(now(), map("{}"));
    stage.answer(returned, 1, "500 no");
    stage.answer(returned, 2, "503 /hmxinputmanager: connection lost, outcome unknown");
    stage.answer(returned, 3, "{}");
    EXPECT_EQ(stage.lines.take().back(),
              "2 InputBridge::setApi sent 4 region configurations again: 2 accepted, 1 refused, 1 without an outcome");
    support::FakeKeloApi again;
    stage.attach(again);
    EXPECT_EQ(sentTo(again), (Events{"map:-", "two:A"})) << "what was refused has left, what has no outcome has not";
    for (const std::size_t i : {0U, 1U}) stage.answer(again, i, "500 no");
    EXPECT_EQ(watcher.take(), (Events{"404 UNKNOWN", "gone"}));
}

TEST(InputBridge, SendsAgainAFewAtATimeAndWhatAClientChangesFirst) {
    Stage stage{"regionconfigurations", {.sentAgain = 2}};
    Downstream caller;
    for (const std::string component : {"1", "2", "3", "4"}) {
        stage.ask(insert(component), caller);
        stage.answer(stage.api.sent.size() - 1, "{}");
    }
    support::FakeKeloApi returned;
    stage.attach(returned);
    EXPECT_EQ(sentTo(returned), (Events{"1:A", "2:A"}));
    stage.ask(insert("4"), caller);
    EXPECT_EQ(sentTo(returned), (Events{"1:A", "2:A", "4:A", "4:A"}));
    for (const std::size_t i : {0U, 1U, 2U, 3U, 4U}) stage.answer(returned, i, "{}");
    EXPECT_EQ(sentTo(returned), (Events{"1:A", "2:A", "4:A", "4:A", "3:A"}));
}

// "…DRIVER" + "_POPUP" and "…DRIVER_POPUP" + "" give the same id.
TEST(InputBridge, OneIdForTwoPlacesMeansTheLastAndTheOtherIsClearedFirst) {
    const std::string one = insert("_POPUP");
    const std::string other = insert("", "HMI_ID_ANDROID_DRIVER_POPUP");
    for (const bool isCleared : {true, false}) {
        Stage stage{"regionconfigurations"};
        Downstream first, second, third;
        stage.ask(one, first);
        stage.answer(0, "{}");
        stage.ask(other, second);
        stage.ask(other, third);  // waits too
        EXPECT_EQ(sentTo(stage.api), (Events{"_POPUP:A", "_POPUP:-"}));
        EXPECT_EQ(stage.lines.take().at(3),
                  "3 InputBridge::insertRegionconfigurationObject display: Driver_Display hmi : HMI_ID_ANDROID_DRIVER_POPUP "
                  "subcomponent:  has the id of display: Driver_Display hmi : HMI_ID_ANDROID_DRIVER subcomponent: _POPUP, which "
                  "is cleared");
        stage.answer(1, isCleared ? "{}" : "500 no");
        if (isCleared) {
            EXPECT_EQ(sentTo(stage.api), (Events{"_POPUP:A", "_POPUP:-", ":A", ":A"}));
            EXPECT_EQ(stage.api.sent.back().request.path(), "/Driver_Display/HMI_ID_ANDROID_DRIVER_POPUP");
            stage.answer(2, "{}");
            EXPECT_EQ(second.take().size(), 2U);
        } else {
            EXPECT_EQ(second.take(), (Events{"500 no", "gone"}));
            EXPECT_EQ(sentTo(stage.api), (Events{"_POPUP:A", "_POPUP:-", "_POPUP:-"})) << "the next one tries again";
            stage.answer(2, "{}");
        }
        stage.answer(3, "{}");
        EXPECT_EQ(third.take().size(), 2U);
    }
}

TEST(InputBridge, WhatIsTooMuchIsRefused) {
    const std::string text = "[InputBridge::insertRegionconfigurationObject ";
    const struct {
        hmx::RegionLimits limits;
        bool isAnswered;
        std::string refusal;
    } cases[] = {
        {{.configurations = 1}, true, "507 " + text + "too many region configurations, request not sent]"},
        {{.bytes = 900}, true, "507 " + text + "the region configurations take too much memory, request not sent]"},
        {{.bytes = 1300}, false, "507 " + text + "the region configurations take too much memory, request not sent]"},
        {{.changes = 1}, false, "503 " + text + "too many changes wait for the input manager, request not sent]"},
    };
    for (const auto& each : cases) {
        Stage stage{"regionconfigurations", each.limits};
        Downstream first, second;
        stage.ask(insert("1"), first);
        if (each.isAnswered) stage.answer(0, "{}");
        stage.ask(insert("2"), second);
        EXPECT_EQ(second.take(), (Events{each.refusal, "gone"}));
        if (!each.isAnswered) stage.answer(0, "{}");
        stage.ask(R"(delete 6b5d9ab8-6f2c-5d0c-a4a8-b8a1a3b7b0aa)", second);  // of something that does not exist
        stage.ask("delete " + first.events.front().substr(26, 36), second);
        stage.answer(1, "{}");
        stage.ask(insert("2"), second);  // there is room again
        stage.answer(2, "{}");
        EXPECT_EQ(first.events.size(), 2U);
    }
}

// Changes of "map" are sent and answered: "A" an insert, "B" an update, "-" a deletion, "+" and "!" accept or refuse the oldest
// one, "?" loses it. Then the bridge ends, as if it were killed.
TEST(InputBridge, TheNextBridgeContinuesWithWhatIsKept) {
    const struct {
        const char* course;
        const char* sent;  // by the next bridge
        std::string shown;
    } cases[] = {
        {"", "", "404 UNKNOWN"},          {"A", "map:-", "404 UNKNOWN"},  {"A+", "map:A", map(layerA)},
        {"A!", "", "404 UNKNOWN"},        {"A?", "map:-", "404 UNKNOWN"}, {"A+B", "map:A", map(layerA)},
        {"A+B+", "map:B", map(layerB)},   {"A+B!", "map:A", map(layerA)}, {"A+-", "map:A", map(layerA)},
        {"A+-+", "", "404 UNKNOWN"},      {"A+-!", "map:A", map(layerA)}, {"A+-B+", "map:-", "404 UNKNOWN"},
        {"A+-B++", "map:B", map(layerB)}, {"A+B-++", "", "404 UNKNOWN"},
    };
    for (const auto& [course, sent, shown] : cases) {
        SCOPED_TRACE(course);
        std::string why;
        auto kept = KeptState::create(hmx::InputBridge::keptForm(), why);
        const int file = ::dup(kept->descriptor());
        const auto next = [&] { return KeptState::adopt(::dup(file), hmx::InputBridge::keptForm(), why); };
        std::deque<Downstream> callers;  // outlive the bridge, which still has those that were not answered
        Stage stage{"regionconfigurations", {}, std::move(kept)};
        const auto shownBy = [&](Stage& bridge) {
            Downstream reader;
            bridge.ask("element " + mapId, reader);
            return reader.events.front();
        };
        std::size_t answered = 0;
        for (const char step : std::string{course}) {
            if (step == '+' || step == '!' || step == '?') {
                stage.answer(answered++, step == '+' ? "{}" : step == '!' ? "500 no" : "503 lost, outcome unknown");
                continue;
            }
            Downstream& caller = callers.emplace_back();
            caller.onValue = [&, told = step == 'A'   ? map(layerA)
                                        : step == 'B' ? map(layerB)
                                                      : "404 UNKNOWN"] {
                Stage witness{"regionconfigurations", {}, next()};
                EXPECT_EQ(shownBy(witness), told) << "what the caller hears is kept already";
                witness.end();
            };
            const std::string update = "update " + mapId + R"( {"regions":)" + layerB + "}";
            stage.ask(step == 'A' ? insertMap : step == 'B' ? update : "delete " + mapId, caller);
        }
        Stage after{"regionconfigurations", {}, next()};
        std::string all;
        for (const std::string& each : sentTo(after.api)) all += each;
        EXPECT_EQ(all, sent);
        EXPECT_EQ(shownBy(after), shown);
        for (Stage* const each : {&stage, &after}) each->end();
        ::close(file);
    }
}

TEST(InputBridge, WhatIsKeptButNotOfItsOwnIsDropped) {
    std::string why;
    auto kept = KeptState::create(hmx::InputBridge::keptForm(), why);
    std::UUID id;
    ASSERT_TRUE(std::UUID::parse(mapId, id));
    const std::string documents[] = {"", "noise",
                                     "\xbf\x67"
                                     "display"
                                     "\x61"
                                     "D"
                                     "\x63"
                                     "hmi"
                                     "\x61"
                                     "H"
                                     "\x6c"
                                     "subComponent"
                                     "\x60\xff"};
    for (const std::string& document : documents) {
        EXPECT_TRUE(kept->put(id, {reinterpret_cast<const std::uint8_t*>(document.data()), document.size()}));
        const int file = ::dup(kept->descriptor());
        Stage stage{"regionconfigurations", {}, KeptState::adopt(file, hmx::InputBridge::keptForm(), why)};
        EXPECT_TRUE(sentTo(stage.api).empty());
        EXPECT_EQ(stage.lines.take().front().find("3 InputBridge::InputBridge a region configuration is dropped: "), 0U);
    }
}

TEST(InputBridge, AChangeIsCarriedThroughBeyondTheTimeOfItsCaller) {
    Stage stage{"regionconfigurations", {.patience = std::chrono::milliseconds{1}}};
    Downstream caller;
    stage.ask(insertMap, caller);
    for (int i = 0; caller.events.empty() && i < 1000; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
        stage.worker.crank();
    }
    EXPECT_EQ(caller.take(), (Events{"504 /hmxinputmanager: no answer within 1 ms, outcome unknown", "gone"}));
    EXPECT_EQ(stage.api.sent.back().deadline.count(), 0);
    stage.answer(0, "{}");
    stage.ask("element " + mapId, caller);
    EXPECT_EQ(caller.take(), (Events{map(layerA), "gone"}));
}

}  // namespace
