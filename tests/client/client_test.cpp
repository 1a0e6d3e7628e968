// Lookups and subscriptions whose answers come late, many at once on one thread.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <deque>
#include <optional>
#include <stdexcept>
#include <thread>

#include "hmx/client/elements.h"
#include "hmx/client/records.h"
#include "hmx/client/subscription.h"
#include "hmx/display_object.h"
#include "hmx/popup_object.h"
#include "support/scripted_api.h"

namespace hmx::client {
namespace {

using namespace scripted;
using namespace std::chrono_literals;

struct ClientTest : testing::Test {
    ClientTest() { hmx.late = true; }

    // Lets one thing after the other arrive until nothing is left.
    void crank() {
        do client.dispatch();
        while (hmx.deliver());
        client.dispatch();
    }

    ScriptedApis apis;
    ScriptedApi& hmx = apis["/hmx"];
    Client client{{.style = {.patient = false}}, [this](Dispatcher&) { return std::make_unique<ScriptedDomain>(apis); }};
};

TEST_F(ClientTest, LookupsAtOnceEachFindTheirElement) {
    const std::string map = R"({"id":")" + idOf("hmx/displayables/17") + R"(","name":"Map","uri":"u","displayableID":17})";
    hmx.on("retrieve /displays", page({driver, cluster}));
    hmx.on(R"(retrieve /displays {"name":"Driver_Display"})", page({driver}));
    hmx.on(R"(retrieve /displayables)", page({map}));
    hmx.on(R"(retrieve /popups {"display":"Driver_Display"})",
           page({popup("Driver_Display", "Phone"), popup("Driver_Display", "Both")}));
    hmx.on(R"(retrieve /popups {"display":"Cluster_Display"})", page({popup("Cluster_Display", "Both")}));
    hmx.on(R"(retrieve /popups {"display":"Driver_Display","name":"Phone"})", page({popup("Driver_Display", "Phone")}));
    hmx.on("retrieve /layerconfigurations",
           page({R"({"id":")" + idOf("hmx/layerconfigurations/Driver_Display") + R"(","name":"","uri":"u"})"}));
    const std::vector<std::pair<const char*, std::string>> cases{
        {"displays/Driver_Display", driverId},
        {"displays/1924", driverId},
        {"displays/19243473-0126", driverId},
        {"displays/1924347301265F4B", driverId},
        {"displayables/17", idOf("hmx/displayables/17")},
        {"displayables/Map", idOf("hmx/displayables/17")},
        {"popups/Driver_Display/Phone", idOf("Driver_DisplayPhone")},
        {"popups/Phone", idOf("Driver_DisplayPhone")},
        {"layerconfigurations/Driver_Display", idOf("hmx/layerconfigurations/Driver_Display")},
        {"regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER", idOf("Driver_DisplayHMI_ID_ANDROID_DRIVER")},
        {"displays/192", "displays/192: there is no such element at /hmx"},
        {"displays/ffff", "displays/ffff: there is no such element at /hmx"},
        {"popups/Both", "popups/Both: fits 2 elements"},
        {"regionconfigurations/1924", "regionconfigurations/1924: not the name of one of the regionconfigurations"},
    };
    std::deque<Elements> lookups;
    std::vector<Operation> operations;
    std::vector<std::string> found(cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Elements& elements = lookups.emplace_back(client, client.deadline());
        operations.push_back(client.start(elements.find(parseTarget(cases[i].first)), [&found, i](const Outcome<std::UUID>& id) {
            found[i] += id ? id.value().toString() : id.error().what();
        }));
    }
    EXPECT_EQ(found, std::vector<std::string>(cases.size())) << "called back from within the call that started it";
    crank();
    for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(found[i], cases[i].second) << cases[i].first;
}

TEST_F(ClientTest, OperationThatIsDroppedAsksForNothingMore) {
    hmx.on("retrieve /displays", page({driver}));
    bool called = false;
    Operation operation =
        client.start(retrieve(client, "displays/Driver_Display"), [&](const Outcome<Answer>&) { called = true; });
    EXPECT_TRUE(operation.isOpen());
    EXPECT_EQ(hmx.asked.size(), 1U);
    operation = {};
    EXPECT_EQ(hmx.cancelled, 1);
    crank();
    EXPECT_FALSE(called);
    EXPECT_EQ(hmx.asked.size(), 1U);
    // A callback may drop its own operation, and what it throws reaches the program's loop.
    operation = client.start(retrieve(client, "displays/" + driverId), [&](const Outcome<Answer>&) {
        operation = {};
        throw std::runtime_error{"the program's own"};
    });
    EXPECT_THROW(crank(), std::runtime_error);
    EXPECT_THROW(
        {
            operation = client.start(client.service("/hmx", client.deadline()), [&](const Outcome<Service>&) {
                (void)client.run(retrieve(client, "displays/x"));  // would wait for itself
            });
            crank();
        },
        std::logic_error);
}

TEST_F(ClientTest, ErrorsSayWhatBecameOfTheRequest) {
    using Kind = Error::Kind;
    struct Case {
        const char* answer;
        Kind kind;
        Sent sent;
        bool isPassing;
    };
    const std::vector<Case> cases{
        {"400 [bad]", Kind::refused, Sent::answered, false},
        {"404 [none]", Kind::refused, Sent::answered, false},
        {"500 [oops]", Kind::refused, Sent::answered, false},
        {"503 no room, request not sent", Kind::refused, Sent::no, true},
        {"503 lost, outcome unknown", Kind::refused, Sent::unknown, true},
        {"504 after 10 ms, outcome unknown", Kind::refused, Sent::unknown, true},
        {"completed", Kind::ended, Sent::answered, true},
        {"silence", Kind::late, Sent::unknown, true},
    };
    hmx.late = false;
    for (const Case& each : cases) {
        const std::string answer = each.answer;
        hmx.on("retrieve /x", std::vector<Events>{answer == "silence" ? Events{} : Events{answer}});
        const Service service = client.run(client.service("/hmx", client.deadline()));
        try {
            (void)client.run(service.request({"retrieve", "/x"}, Deadline{20ms}));
            ADD_FAILURE() << answer;
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), each.kind) << answer;
            EXPECT_EQ(error.sent(), each.sent) << answer;
            EXPECT_EQ(error.isPassing(), each.isPassing) << answer;
            EXPECT_EQ(error.tried(), "retrieve /x at /hmx");
            const bool said = each.kind == Kind::refused;
            EXPECT_EQ(error.reason(), said ? answer.substr(4) : "");
            EXPECT_EQ(error.status(), said ? std::stoi(answer) : 0);
        }
    }
    EXPECT_EQ(hmx.cancelled, 1) << "what is not waited for is not left behind";
}

TEST_F(ClientTest, ElementsAsRecordsFromEveryEncoding) {
    hmx.late = false;
    hmx.on("retrieve /displays", page({driver, cluster}));
    hmx.on(R"(retrieve /popups {"display":"Driver_Display"})", page({popup("Driver_Display", "A", R"(,"visible":true)")}));
    for (const char* encoding : {"application/json", "application/vnd.msgpack", "application/vnd.ixobin"}) {
        hmx.encoding = encoding;
        const auto displays = client.run(list<kelo::hmx::DisplayObject>(client));
        ASSERT_EQ(displays.size(), 2U);
        EXPECT_EQ(displays[0].id.toString(), driverId);
        EXPECT_EQ((*displays[0].resolution)->width, 1920);
        const auto popups = client.run(list<kelo::hmx::PopupObject>(client));
        ASSERT_EQ(popups.size(), 1U) << "none on a display that is not known there";
        EXPECT_EQ(popups[0].visible, true);
    }
    hmx.encoding = "application/json";
    hmx.on("retrieve " + driverPath, driver);
    EXPECT_EQ(client.run(get<kelo::hmx::DisplayObject>(client, driverPath)).displayID, 1);
    hmx.on("retrieve " + driverPath, R"({"id":7})");
    EXPECT_THROW((void)client.run(get<kelo::hmx::DisplayObject>(client, driverPath)), Error);
}

// An update in one line: its kind, the names in its state, and what changed.
std::string textOf(const Update& update) {
    constexpr const char* kinds[] = {"snapshot", "changed", "missing", "lost", "ended", "failed"};
    constexpr const char* changes[] = {"+", "~", "-"};
    const auto nameOf = [](const Json& element) { return text(element, element.contains("name") ? "name" : "id"); };
    std::string line = kinds[static_cast<int>(update.kind)];
    if (update.isBack) line += " back";
    if (update.isRepeated) line += " still";
    for (const Json& element : update.elements) line += " " + nameOf(element);
    for (const ElementChange& change : update.changes) {
        line += std::string{" "} + changes[static_cast<int>(change.kind)] + nameOf(change.element);
        for (const std::string& member : change.members) line += "." + member;
    }
    return line;
}

struct SubscriptionTest : ClientTest {
    // The updates until that of `last`, each answer delivered by itself.
    std::vector<std::string> updates(Subscription& subscription, const std::string& last) {
        std::vector<std::string> lines;
        const Deadline patience{10s};
        while (!patience.passed() && (lines.empty() || lines.back() != last)) {
            if (const auto update = subscription.tryNext()) {
                lines.push_back(textOf(*update));
            } else {
                if (!hmx.deliver() && !inputManager.deliver()) (void)client.dispatcher().wait(patience);
                client.dispatch();
            }
        }
        return lines;
    }

    ScriptedApi& inputManager = apis["/hmxinputmanager"];
};
using Lines = std::vector<std::string>;

TEST_F(SubscriptionTest, TellsChangesLossAndReturn) {
    const std::string other = display("Driver_Display", R"(,"displayID":2)");
    hmx.on("retrieve /displays",
           {{page({driver, cluster}), page({driver, cluster}), page({other}), page({other, cluster}), "503 upstream gone"},
            {"503 no answer"},
            {page({other}), "400 [no]"}});
    Subscription displays{client, {.target = parseTarget("displays")}};
    EXPECT_EQ(updates(displays, "failed"),
              (Lines{"snapshot Driver_Display Cluster_Display", "changed Driver_Display Cluster_Display",
                     "changed Driver_Display ~Driver_Display.displayID.resolution -Cluster_Display",
                     "changed Driver_Display Cluster_Display +Cluster_Display", "lost", "lost still",
                     "snapshot back Driver_Display", "failed"}));

    hmx.on("retrieve " + driverPath, {{driver}, {driver, "404 UNKNOWN"}, {"404 UNKNOWN"}, {"404 UNKNOWN"}, {driver}});
    hmx.on("retrieve /displays", page({driver}));
    Subscription element{client, {.target = parseTarget("displays/Driver_Display")}};
    EXPECT_EQ(
        updates(element, "changed Driver_Display +Driver_Display"),
        (Lines{"snapshot Driver_Display", "missing -Driver_Display", "missing still", "changed Driver_Display +Driver_Display"}));
}

TEST_F(SubscriptionTest, PopupsOfAllDisplaysAreOneState) {
    hmx.on("retrieve /displays",
           {{page({display("A"), display("Unknown")})},
            {page({display("A"), display("Unknown")}), page({display("A"), display("Unknown"), display("B")})},
            {page({display("A"), display("Unknown"), display("B")})}});
    hmx.on(R"(retrieve /popups {"display":"A"})", page({popup("A", "One")}));
    hmx.on(R"(retrieve /popups {"display":"B"})", std::vector<Events>{{page({popup("B", "Two")}), page({})}});
    Subscription popups{client, {.target = parseTarget("popups")}};
    EXPECT_EQ(updates(popups, "changed One -Two"), (Lines{"snapshot One", "changed One Two +Two", "changed One -Two"}));
}

TEST_F(SubscriptionTest, TouchRegionsAreKnownAgainByTheirNames) {
    inputManager.late = true;
    const std::string one = R"({"regionID":1,"hmiName":"H","layer":"Map"})";
    const std::string two = R"({"regionID":2,"hmiName":"H","layer":"Map"})";
    inputManager.on("retrieve /D", std::vector<Events>{{R"({"regionInfoSorted":[)" + one + "," + two + "]}",
                                                        R"({"regionInfoSorted":[)" + two + "]}", R"({"regionInfoSorted":7})"}});
    Subscription regions{client, {.surface = "D"}};
    EXPECT_EQ(updates(regions, "failed"), (Lines{"snapshot H/Map/1 H/Map/2", "changed H/Map/2 -H/Map/1", "failed"}));
}

TEST_F(SubscriptionTest, NobodyWhoTakesStatesAndACallbackThatEndsIt) {
    const std::string twin = display("Driver_Display", R"(,"displayID":2)");
    Events many{page({driver, twin}), page({driver})};
    for (int i = 0; i < 1000; ++i) many.push_back(page({display("Driver_Display", ",\"displayID\":" + std::to_string(i))}));
    hmx.on("retrieve /displays", std::vector<Events>{many});
    std::optional<Subscription> slow{std::in_place, client, Followed{.target = parseTarget("displays")}};
    crank();
    std::size_t kept = 0;
    std::optional<Update> newest;
    while (auto update = slow->tryNext()) {
        EXPECT_TRUE(++kept != 2 || textOf(*update) == "changed Driver_Display -Driver_Display") << "one of two that share an id";
        newest = std::move(update);
    }
    EXPECT_LE(kept, 32U) << "intermediate states are dropped while nobody takes them";
    EXPECT_EQ(member(newest->elements.at(0), "displayID"), 999);

    int called = 0;
    slow.emplace(client, Followed{.target = parseTarget("displays")}, [&] {
        ++called;
        slow.reset();
    });
    const int before = hmx.cancelled;
    crank();
    EXPECT_EQ(called, 1);
    EXPECT_EQ(hmx.cancelled, before + 1);
}

// Whether its owner is reminded that something is left to dispatch.
bool isReminded(const Dispatcher& dispatcher) {
    pollfd reminder{dispatcher.descriptor(), POLLIN, 0};
    return ::poll(&reminder, 1, 0) == 1;
}

TEST(Dispatcher, WhoBringsNewsToASharedOneAnswers) {
    Dispatcher dispatcher;
    Signal signal{dispatcher};
    Signal more{dispatcher};
    std::thread::id answerer;
    std::function<void()> then = [] {};
    signal.onRaised([&] { answerer = std::this_thread::get_id(), then(); });
    std::chrono::steady_clock::duration took{0};
    const auto bring = [&] {
        answerer = {};
        const auto begun = std::chrono::steady_clock::now();
        std::thread bringer{[raiser = signal.raiser()] { raiser.raiseOrAnswer(); }};
        const std::thread::id id = bringer.get_id();
        bringer.join();
        took = std::chrono::steady_clock::now() - begun;
        return id;
    };
    // An answer costs twice its time, however slow the machine is.
    const auto bringAfterRest = [&] {
        std::this_thread::sleep_for(3 * took);
        return bring();
    };
    const auto expectLeftToOwner = [&] {
        EXPECT_EQ(answerer, std::thread::id{});
        EXPECT_TRUE(isReminded(dispatcher));
        dispatcher.dispatch();
        EXPECT_EQ(answerer, std::this_thread::get_id());
    };
    bring();
    expectLeftToOwner();
    {
        const Dispatcher::Sharing sharing{dispatcher};
        EXPECT_EQ(bringAfterRest(), answerer);
        EXPECT_FALSE(isReminded(dispatcher));
        // What an answer leaves over is the owner's: a signal, an earlier timer, an exception.
        then = [&] { more.raiseHere(); };
        EXPECT_EQ(bringAfterRest(), answerer);
        EXPECT_TRUE(isReminded(dispatcher));
        dispatcher.dispatch();
        Operation paused;
        then = [&] {
            paused =
                dispatcher.start([](Dispatcher& each) -> Task<> { co_await each.pause(1h); }(dispatcher), [](const auto&) {});
        };
        EXPECT_EQ(bringAfterRest(), answerer);
        EXPECT_TRUE(isReminded(dispatcher) && dispatcher.nextTimer());
        then = [] { throw std::runtime_error{"an answer"}; };
        EXPECT_EQ(bringAfterRest(), answerer);
        EXPECT_THROW(dispatcher.dispatch(), std::runtime_error);
        // An answer is a callback like any other.
        then = [&] { EXPECT_THROW(dispatcher.dispatch(), std::logic_error) << dispatcher.nextTimer().has_value(); };
        EXPECT_EQ(bringAfterRest(), answerer);
        then = [] {};
        // Nobody answers while another dispatches.
        more.onRaised([&] { bring(); });
        more.raiseHere();
        dispatcher.dispatch();
        expectLeftToOwner();
        // Nor for most of the time.
        then = [] { std::this_thread::sleep_for(20ms); };
        EXPECT_EQ(bringAfterRest(), answerer);
        then = [] {};
        bring();
        expectLeftToOwner();
    }
    bring();
    expectLeftToOwner();
}

TEST(Dispatcher, SharedIsOnesAtATime) {
    Dispatcher dispatcher;
    Signal signal{dispatcher};
    std::atomic<int> brought = 0;
    int seen = 0;
    signal.onRaised([&] { seen = brought; });
    {
        const Dispatcher::Sharing sharing{dispatcher};
        std::vector<std::jthread> bringers;
        for (int i = 0; i < 2; ++i) {
            bringers.emplace_back([&, raiser = signal.raiser()] {
                for (int n = 0; n < 2000; ++n) ++brought, raiser.raiseOrAnswer();
            });
        }
        for (int n = 0; n < 2000; ++n) dispatcher.dispatch(), (void)dispatcher.nextTimer();
    }
    dispatcher.dispatch();
    EXPECT_EQ(seen, 4000);
}

TEST(Dispatcher, WhatIsRaisedAfterItsLastTurnKeepsNothingOpen) {
    int descriptor = -1;
    {
        auto dispatcher = std::make_unique<Dispatcher>();
        descriptor = dispatcher->descriptor();
        std::optional<Signal> signal{*dispatcher};
        const Signal::Raiser early = signal->raiser();
        const Signal::Raiser late = Signal{*dispatcher}.raiser();
        signal.reset();
        early.raise();
        dispatcher.reset();
        late.raise();
    }
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

}  // namespace
}  // namespace hmx::client
