// Viewers fast and slow, new and returning, each of which must end at the true state.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "event_hub.h"
#include "gateway_limits.h"

namespace hmxgateway {
namespace {

using Json = nlohmann::ordered_json;
using testing::ElementsAre;
using testing::HasSubstr;

Json element(const std::string& id, int value) {
    return {{"id", id}, {"value", value}};
}

class EventHubTest : public testing::Test {
protected:
    Watch watch(const std::string& name) {
        return {name, [this, name](Topic& topic) {
                    topics[name] = &topic;
                    return std::make_unique<Source>();
                }};
    }
    std::unique_ptr<Viewer> join(const std::vector<std::string>& names, const std::string& seen = "") {
        std::vector<Watch> watches;
        for (const std::string& name : names) watches.push_back(watch(name));
        return hub.join(watches, names.size() > 1, seen, [this] { ++woken; });
    }
    std::unique_ptr<Viewer> joinOne(const std::string& seen = "") { return join({"/a"}, seen); }

    static std::string text(Viewer& viewer, std::size_t room = 1 << 20) {
        std::string out(room, '\0');
        out.resize(viewer.read(out.data(), room));
        return out;
    }
    // "changed {…}" for each event that waits; remembers the last id.
    std::vector<std::string> events(Viewer& viewer) {
        std::vector<std::string> found;
        std::string all = text(viewer);
        for (std::size_t at = 0; (at = all.find("id: ", at)) != std::string::npos; ++at) {
            const auto line = [&](const char* key) {
                const std::size_t begin = all.find(key, at) + std::strlen(key);
                return all.substr(begin, all.find('\n', begin) - begin);
            };
            lastId = line("id: ");
            found.push_back(line("event: ") + " " + line("data: "));
        }
        return found;
    }
    Topic& a() { return *topics.at("/a"); }
    Topic& b() { return *topics.at("/b"); }

    std::map<std::string, Topic*> topics;
    EventHub hub{"gen"};
    int woken = 0;
    std::string lastId;
};

TEST_F(EventHubTest, viewerSeesSnapshotAndChanges) {
    const auto viewer = joinOne();
    EXPECT_EQ(text(*viewer), "retry: 1000\n\n");
    a().snapshot({element("x", 1), element("y", 1)});
    EXPECT_EQ(woken, 1);
    EXPECT_THAT(events(*viewer), ElementsAre(R"(snapshot {"elements":[{"id":"x","value":1},{"id":"y","value":1}]})"));
    a().changed(element("y", 2));
    a().removed("x");
    a().removed("z");
    EXPECT_EQ(woken, 2) << "woken once for what it has not read";
    EXPECT_THAT(events(*viewer), ElementsAre(R"(changed {"element":{"id":"y","value":2}})", R"(removed {"id":"x"})"));
    EXPECT_THAT(events(*joinOne()), ElementsAre(R"(snapshot {"elements":[{"id":"y","value":2}]})"));
    viewer->comment();
    EXPECT_EQ(text(*viewer), ": \n\n");
}

TEST_F(EventHubTest, slowViewerGetsTheNewestOfEach) {
    const auto slow = joinOne();
    a().snapshot({element("x", 0), element("y", 0)});
    (void)events(*slow);
    for (int i = 1; i <= 1000; ++i) a().changed(element("x", i));
    a().changed(element("y", 1));
    a().removed("x");
    EXPECT_THAT(events(*slow), ElementsAre(R"(changed {"element":{"id":"y","value":1}})", R"(removed {"id":"x"})"));
    // So many that a snapshot is less.
    for (unsigned i = 0; i <= limits.queuedEvents; ++i) a().changed(element("n" + std::to_string(i), 1));
    const auto seen = events(*slow);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_THAT(seen.front(), HasSubstr("snapshot"));
    EXPECT_THAT(seen.front(), HasSubstr("\"n64\""));
}

TEST_F(EventHubTest, isReadInPiecesOfAnySize) {
    const auto viewer = joinOne();
    a().snapshot({element("x", 1)});
    a().changed(element("x", 2));
    std::string whole;
    for (std::string piece = text(*viewer, 3); !piece.empty(); piece = text(*viewer, 3)) {
        whole += piece;
        if (whole.size() == 60) a().changed(element("x", 3));
    }
    EXPECT_THAT(whole, HasSubstr("event: snapshot\ndata: {\"elements\":[{\"id\":\"x\",\"value\":2}]}\n\n"));
    EXPECT_TRUE(whole.ends_with("event: changed\ndata: {\"element\":{\"id\":\"x\",\"value\":3}}\n\n")) << whole;
}

TEST_F(EventHubTest, lossAndReturnAreTold) {
    const auto viewer = joinOne();
    a().lost("/hmx", "gone");
    a().lost("/hmx", "still gone");
    auto seen = events(*viewer);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_THAT(seen.front(), testing::MatchesRegex(R"(lost \{"service":"/hmx","reason":"gone","since":"20.*Z"\})"));
    a().snapshot({element("x", 1)});
    EXPECT_THAT(events(*viewer), ElementsAre("back {}", HasSubstr("snapshot")));
    a().lost("/hmx", "again");
    EXPECT_THAT(events(*joinOne()), ElementsAre(HasSubstr("snapshot"), HasSubstr("lost"))) << "the last state stands";
    a().snapshot({element("x", 2)});
    // It has not read of the loss, and the state after it is the whole truth.
    EXPECT_THAT(events(*viewer).back(), HasSubstr(R"("value":2)"));
}

TEST_F(EventHubTest, returningViewerGoesOn) {
    auto viewer = joinOne();
    a().snapshot({element("x", 0)});
    a().changed(element("x", 1));
    (void)events(*viewer);
    const std::string id = lastId;
    viewer.reset();
    a().changed(element("x", 2));
    a().changed(element("x", 3));
    EXPECT_THAT(events(*joinOne(id)), ElementsAre(R"(changed {"element":{"id":"x","value":3}})"));
    EXPECT_THAT(events(*joinOne(lastId)), ElementsAre()) << "nothing is told twice";
    for (const std::string other : {"", "gen", "gen-", "gen-0", "gen-99999999", "gen--1", "other-3", "gen-1x"}) {
        EXPECT_THAT(events(*joinOne(other)), ElementsAre(HasSubstr("snapshot"))) << other;
    }
    for (unsigned i = 0; i <= limits.historyEvents; ++i) a().changed(element("x", 9));
    EXPECT_THAT(events(*joinOne(id)), ElementsAre(HasSubstr("snapshot"))) << "what it missed is forgotten";
}

// Wherever a stream of two things is cut, what follows must add up to the state of both.
TEST_F(EventHubTest, severalThingsGoOnTogether) {
    const auto keeper = join({"/a", "/b"});
    a().snapshot({element("x", 0)});
    b().snapshot({element("y", 0)});
    (void)events(*keeper);
    const auto whole = [&](std::string_view id) { return text(*join({"/a", "/b"}, std::string{id})); };
    const std::string first = whole("");
    a().changed(element("x", 1));
    const std::string cut = first.substr(0, first.find("\n\n", first.find("id: ")) + 2);
    const std::string id = cut.substr(cut.find("id: ") + 4, cut.find('\n', cut.find("id: ")) - cut.find("id: ") - 4);
    EXPECT_THAT(whole(id), HasSubstr(R"({"watch":"/b","data":{"elements":[{"id":"y","value":0}]}})"))
        << "cut after the first snapshot";
    const std::size_t last = first.rfind("id: ") + 4;
    const std::string after = whole(first.substr(last, first.find('\n', last) - last));
    EXPECT_THAT(after, HasSubstr(R"(changed
data: {"watch":"/a","data":{"element":{"id":"x","value":1}}})"));
    EXPECT_THAT(after, testing::Not(HasSubstr("snapshot")));
}

TEST_F(EventHubTest, whoReadsNothingIsCutFirst) {
    const auto reader = joinOne();
    std::vector<std::unique_ptr<Viewer>> sleepers;
    const std::string big(limits.unreadBytes / 8, 'x');
    for (int i = 0; i < 12; ++i) {
        a().snapshot({{{"id", std::to_string(i)}, {"text", big}}});
        sleepers.push_back(joinOne());
        (void)text(*sleepers.back(), 100);  // begins this snapshot and does not finish it
        while (!text(*reader).empty()) {
        }
        hub.forgetTexts();
    }
    EXPECT_FALSE(reader->isCut());
    EXPECT_TRUE(sleepers.front()->isCut());
    EXPECT_FALSE(sleepers.back()->isCut());
    EXPECT_LE(hub.cutViewers(), 5U);
}

TEST_F(EventHubTest, topicOutlivesItsViewersForAWhile) {
    auto viewer = joinOne();
    viewer.reset();
    const auto now = EventHub::Clock::now();
    EXPECT_TRUE(hub.expire(now));
    EXPECT_EQ(hub.topics(), 1U);
    EXPECT_FALSE(hub.expire(now + limits.linger + std::chrono::seconds{1}));
    EXPECT_EQ(hub.topics(), 0U);
    std::vector<std::unique_ptr<Viewer>> viewers;
    for (unsigned i = 0; i < limits.topics; ++i) viewers.push_back(join({"/" + std::to_string(i)}));
    EXPECT_EQ(join({"/one more"}), nullptr);
    viewers.pop_back();
    EXPECT_NE(join({"/one more"}), nullptr) << "in the place of one that nobody watches";
}

}  // namespace
}  // namespace hmxgateway
