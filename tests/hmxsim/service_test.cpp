#include "service.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>

#include "stage.h"

namespace {

using hmxsim::Fault;
using hmxsim::FaultRule;
using hmxsim::Faults;
using hmxsim_tests::Events;
using hmxsim_tests::expectAnswers;
using hmxsim_tests::Stage;

constexpr const char* serviceWorld = R"({"displaymanager": {
    "displays": [{"id": 1, "name": "Left", "updateRate": 60}, {"id": 2, "name": "A/B"}],
    "displayables": [{"id": 7, "name": "Map"}],
    "layerConfig": [{"layersForDisplay": {"display": {"id": 1, "name": "Left"}}}]}})";

TEST(Service, FeedsOpenRetrievesWithTheChangesOfTheirAnswers) {
    Stage stage{serviceWorld};
    const auto all = stage.watch(stage.displays(), "/displays");
    const auto left = stage.watch(stage.displays(), "/displays/Left");
    const auto alsoLeft = stage.watch(stage.displays(), "/displays/Left");
    const auto other = stage.watch(stage.displays(), "/displays/A%2FB");
    const auto once = stage.send(stage.displays(), "retrieve", "/displays/Left");
    const std::string before = R"(200 {"id":1,"name":"Left","updateRate":60})";
    const std::string after = R"(200 {"id":1,"name":"Left","updateRate":30})";
    EXPECT_EQ(all.take().size(), 1U);
    for (const auto* client : {&left, &alsoLeft, &once}) EXPECT_EQ(client->take(), Events{before});
    EXPECT_EQ(other.take(), Events{R"(200 {"id":2,"name":"A/B"})"});

    const auto update = [&](const char* body) {
        return stage.send(stage.displays(), "update", "/displays/Left", body, false).take();
    };
    EXPECT_EQ(update(R"({"updateRate": 60})"), (Events{"204", "completed"}));  // the value that it had
    for (const auto* client : {&all, &left, &other}) EXPECT_TRUE(client->take().empty());

    EXPECT_EQ(update(R"({"updateRate": 30, "takeScreenshot": {"filename": "x"}})"), (Events{"204", "completed"}));
    EXPECT_EQ(all.take().size(), 1U);
    for (const auto* client : {&left, &alsoLeft}) EXPECT_EQ(client->take(), Events{after});
    for (const auto* client : {&other, &once}) EXPECT_TRUE(client->take().empty());
    EXPECT_EQ(stage.ask(stage.displays(), "retrieve", "/layerConfig/Left"),
              R"(200 {"display":{"id":1,"name":"Left","updateRate":30}})");

    stage.cancel(left);
    EXPECT_EQ(left.take(), Events{"dropped"});  // over for the client, who hears nothing of it
    EXPECT_EQ(stage.control("delete", "/state/displaymanager/displays/Left"), "204");
    EXPECT_EQ(alsoLeft.take(), Events{"404 no such display: Left"});
    EXPECT_EQ(all.take(), Events{R"(200 {"infoForAllDisplays":[{"id":2,"name":"A/B"}]})"});
    EXPECT_TRUE(left.take().empty());
    EXPECT_EQ(stage.watch(stage.displays(), "/displays/Left").take(), Events{"404 no such display: Left"});
    stage.cancel(all);
    stage.cancel(alsoLeft);  // over already
    stage.cancel(other);
}

TEST(Service, TakesTheDisplayManagersOtherRequests) {
    Stage stage{serviceWorld};
    expectAnswers(stage, stage.displays(),
                  {
                      {"retrieve", "/displayables/7", "", R"(200 {"id":7,"name":"Map"})"},
                      {"update", "/displayables/7", R"({"is_visible": true, "layers": [{"id": 3}]})", "204"},
                      {"retrieve", "/displayables", "",
                       R"(200 {"infoForAllDisplayables":[{"id":7,"name":"Map","is_visible":true,"layers":[{"id":3}]}]})"},
                      {"retrieve", "/displayables/7x", "", "404 no such displayable: 7x"},
                      {"retrieve", "/displayables/99999999999", "", "404 no such displayable: 99999999999"},
                      {"retrieve", "/layerConfig", "", R"(200 [{"layersForDisplay":{"display":{"id":1,"name":"Left"}}}])"},
                      {"retrieve", "/layerConfig/A%2FB", "", "404 no layer configuration of display: A/B"},
                      {"update", "/layerConfig/Left", "{}", "404 no such operation: update /layerConfig/Left"},
                      {"retrieve", "/windows", "", "404 no such operation: retrieve /windows"},
                  });
}

TEST(Service, InjectsTheFaultsOfItsRule) {
    Stage stage{serviceWorld};
    const std::string good = R"(200 {"id":7,"name":"Map"})";
    const auto get = [&] { return stage.send(stage.displays(), "retrieve", "/displayables/7"); };
    const auto rule = [&](const std::string& body) {
        EXPECT_EQ(stage.control("update", "/faults/displaymanager", body), "204") << body;
    };

    rule(R"({"status": 503, "count": 2})");
    for (const char* const answer : {"503 injected fault", "503 injected fault", good.c_str()})
        EXPECT_EQ(get().take(), Events{answer});

    rule(R"({"delay_ms": 100, "count": 1})");
    const auto delayed = get();
    const auto prompt = get();
    EXPECT_EQ(prompt.take(), Events{good});  // the other service's answers wait for nobody
    stage.advance(99);
    EXPECT_TRUE(delayed.take().empty());
    stage.advance(1);
    EXPECT_EQ(delayed.take(), Events{good});

    // The answers to one request keep their order; one that is cancelled meanwhile hears nothing.
    const auto watcher = stage.watch(stage.displays(), "/displays/Left");
    const auto gone = stage.watch(stage.displays(), "/displays/Left");
    watcher.take();
    gone.take();
    rule(R"({"delay_ms": 100, "count": 2})");
    stage.control("update", "/state/displaymanager/displays/Left", R"({"updateRate": 1})");
    stage.control("update", "/state/displaymanager/displays/Left", R"({"updateRate": 2})");
    stage.cancel(gone);
    EXPECT_TRUE(watcher.take().empty());
    stage.advance(100);
    EXPECT_EQ(watcher.take(),
              (Events{R"(200 {"id":1,"name":"Left","updateRate":1})", R"(200 {"id":1,"name":"Left","updateRate":2})"}));
    EXPECT_EQ(gone.take(), Events{"dropped"});

    rule(R"({"silence": true, "count": 1})");
    const auto silenced = get();
    stage.advance(100'000);
    EXPECT_TRUE(silenced.take().empty());  // not even given up
    stage.cancel(silenced);
    EXPECT_EQ(silenced.take(), Events{"dropped"});

    rule(R"({"garble": "truncate", "count": 1})");
    const Events cut = get().take();
    ASSERT_EQ(cut.size(), 1U);
    EXPECT_LT(cut.front().size(), good.size());
    EXPECT_EQ(good.compare(0, cut.front().size(), cut.front()), 0) << cut.front();

    rule(R"({"close": true, "count": 1, "reopen_ms": 50})");
    const auto closed = get();
    EXPECT_EQ(stage.hostCalls, Events{"close displaymanager 50"});
    stage.displays().closed();
    EXPECT_EQ(closed.take(), Events{"dropped"});
    EXPECT_EQ(watcher.take(), Events{"dropped"});
    rule(R"({"crash": true, "now": true})");
    stage.advance(0);
    EXPECT_EQ(stage.hostCalls[1], "crash");
    EXPECT_EQ(get().take(), Events{good});

    EXPECT_EQ(stage.control("retrieve", "/faults"), R"(200 {"displaymanager":{},"inputmanager":{},"popupmanager":{}})")
        << "what happens now leaves no rule in force";
    EXPECT_EQ(stage.control("delete", "/faults/displaymanager"), "204");
}

TEST(Faults, DrawTheSameForTheSameSeed) {
    const auto draw = [](FaultRule rule, std::uint64_t seed) {
        Faults faults;
        faults.set(rule, seed);
        std::string sequence;
        for (int i = 0; i < 200; ++i) {
            const Fault fault = faults.next();
            sequence += std::to_string(static_cast<int>(fault.kind)) + ':' + std::to_string(fault.delay.count()) + ' ';
        }
        return sequence;
    };
    FaultRule rule;
    rule.silence = true;
    rule.status = 500;
    rule.garble = hmxsim::Garble::noise;
    rule.jitter_ms = 30;
    rule.probability = 0.5F;
    EXPECT_EQ(draw(rule, 1), draw(rule, 1));
    EXPECT_NE(draw(rule, 1), draw(rule, 2));
    rule.seed = 9;  // its own seed goes before the simulator's
    EXPECT_EQ(draw(rule, 1), draw(rule, 2));
    // The first draws are written down: they must not change with the machine or the version.
    EXPECT_EQ(draw(rule, 1).substr(0, 40), "0:0 1:25 3:12 0:0 1:28 3:24 0:0 0:0 2:22");
    rule.count = 10;  // of the answers that it affects, however many others pass in between
    std::istringstream drawn{draw(rule, 1)};
    EXPECT_EQ(std::count(std::istream_iterator<std::string>{drawn}, {}, "0:0"), 190);
}

}  // namespace
