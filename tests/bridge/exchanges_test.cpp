// Whole exchanges, from a client's request to its end, as described by the files in exchanges/: what is logged (level and text),
// sent upstream, answered, and received. The exchanges of a file follow one another on one bridge.
#include "stage.h"

namespace {

using namespace stage;

class Exchanges : public testing::TestWithParam<const char*> {};

TEST_P(Exchanges, GoAsWritten) {
    Stage stage{GetParam()};
    for (const Json& exchange : load(std::string{GetParam()} + ".json")) {
        const std::string request = requestOf(exchange);
        SCOPED_TRACE(request);
        stage.lines.take();
        Downstream downstream;
        const std::size_t before = stage.api.sent.size();
        EXPECT_NE(stage.ask(request, downstream), nullptr);

        std::string sent = exchange.value("sent", "");
        if (exchange.contains("body")) sent += " " + exchange["body"].dump();
        EXPECT_EQ(stage.lastSent(before), sent);
        if (exchange.contains("answer")) stage.answer(before, textOf(exchange["answer"]));

        EXPECT_EQ(downstream.events, (Events{textOf(exchange["heard"]), "gone"}));
        EXPECT_EQ(Json(stage.lines.take()), exchange["log"]);
        EXPECT_EQ(stage.api.open(), 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Exchanges,
                         testing::Values("displays", "displayables", "layerconfigurations", "regionconfigurations", "popups"),
                         [](const auto& resource) { return std::string{resource.param}; });

// "ab" + "c" and "a" + "bc" give the same id: it stands for the one that was seen last.
TEST(PopupBridge, AnIdSharedByTwoPopupsMeansTheLastSeen) {
    Stage stage{"popups"};
    Events ties;
    for (const auto& [display, name] : {std::pair<std::string, std::string>{"ab", "c"}, {"a", "bc"}, {"ab", "c"}}) {
        Downstream downstream;
        stage.ask(R"(list {"display":")" + display + R"("})", downstream);
        stage.answer(stage.api.sent.size() - 1, R"([{"name":")" + name + R"("}])");
        stage.ask("element 68661508-f3c4-55b4-945d-ae2b4dfe5db4", downstream);  // abc
        EXPECT_EQ(stage.lastSent(), "retrieve /" + display + "/" + name);
        stage.answer(stage.api.sent.size() - 1, "completed");
        for (auto& line : stage.lines.take()) {
            if (line.find(" has the id of ") != std::string::npos) ties.push_back(std::move(line));
        }
    }
    EXPECT_EQ(ties, Events{"3 PopupBridge popup: bc on display: a has the id of popup: c on display: ab"});
}

}  // namespace
