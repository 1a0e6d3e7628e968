// Replays of recordings: what managers are made to say, when, and when they are away.

#include "replay.h"

#include <fcntl.h>

#include <fstream>

#include "hmx/recording/writer.h"
#include "hmxsim/stage.h"
#include "support/temporary_directory.h"

namespace hmxsim_tests {
namespace {

using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Source;
using hmxsim::ManagerId;
using Json = hmx::client::Json;
using namespace std::chrono_literals;

const Source displays{"/hmxdisplaymanager", "/displays"};
const Source surface{"/hmxinputmanager", "/One"};
const Source popups{"/hmxpopupmanager", "/One"};
const Source others{"/hmxpopupmanager", "/Two"};

Entry state(std::chrono::milliseconds at, const Source& source, const std::string& document) {
    return {.at = at, .source = source, .kind = EntryKind::state, .status = 200, .document = Json::parse(document)};
}
Entry event(std::chrono::milliseconds at, const Source& source, EntryKind kind, const char* reason = "gone") {
    return {.at = at, .source = source, .kind = kind, .status = kind == EntryKind::missing ? 404 : 503, .reason = reason};
}
std::string popup(const char* name, const char* more) {
    return std::string{R"([{"name":")"} + name + "\"" + more + "}]";
}

// A simulator that replays; publications are noted as "popupmanager gone", "popupmanager back".
class Replaying : public testing::Test {
protected:
    void replay(const std::vector<Entry>& entries, hmxsim::ReplayOptions options = {}) {
        options.file = directory_ / "file.jsonl";
        const int descriptor = ::open(options.file.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
        hmx::recording::Writer writer{descriptor, options.file, {}};
        for (const Entry& entry : entries) writer.write(entry);
        ::close(descriptor);
        const auto change = [this](ManagerId manager) { stage_.simulator.service(manager).refresh(); };
        const auto publish = [this](ManagerId manager, bool isThere) {
            notes_.push_back(std::string{nameOf(manager)} + (isThere ? " back" : " gone"));
        };
        replay_ = std::make_unique<hmxsim::Replay>(
            hmxsim::planReplay(options), stage_.simulator.world(), stage_.timers,
            hmxsim::Replay::Stage{change, publish, [this] { return stage_.popups().changes(); }});
        stage_.simulator.control().show(*replay_);
        replay_->run(!options.isPaused);
    }
    std::string ask(hmxsim::Service& service, const std::string& path, const std::string& body = "") {
        return stage_.ask(service, "retrieve", path, body);
    }

    testing_support::TemporaryDirectory directory_;
    Stage stage_{"{}"};
    std::unique_ptr<hmxsim::Replay> replay_;
    std::vector<std::string> notes_;
};

TEST_F(Replaying, SaysWhatWasSaidAtItsTime) {
    const std::string regions =
        R"({"regionInfoSorted":[{"regionID":2,"hmiName":"B","layer":"Top"},{"regionID":1,"hmiName":"A"}]})";
    replay({state(10ms, displays, R"({"infoForAllDisplays":[{"id":1,"name":"One"}]})"), state(11ms, surface, regions),
            state(12ms, popups, popup("Hint", R"(,"requested":true,"active":true,"visible":false,"suppressed":true)")),
            state(112ms, popups, popup("Hint", R"(,"requested":false)")),
            event(312ms, popups, EntryKind::missing, "no popups there")},
           {.speed = 2});
    EXPECT_EQ(ask(stage_.inputs(), "/One"), "200 " + regions) << "in its own order, though that is not the simulator's";
    EXPECT_EQ(ask(stage_.inputs(), "/One/A"), R"(200 {"regionInfoSorted":[{"regionID":1,"hmiName":"A"}]})");
    const std::string hint = popup("Hint", R"(,"requested":true,"suppressed":true,"active":true,"visible":false)");
    EXPECT_EQ(ask(stage_.popups(), "/One"), "200 " + hint) << "though no arbitration would say that";
    EXPECT_EQ(ask(stage_.popups(), "/One", R"({"visible":true})"), "200 []");
    const Client watcher = stage_.watch(stage_.popups(), "/One");
    stage_.advance(49);
    EXPECT_EQ(watcher.take(), Events{"200 " + hint});
    EXPECT_EQ(stage_.control("update", "/replay", "false"), "204");
    stage_.advance(1000);
    EXPECT_EQ(watcher.take(), Events{}) << "it pauses";
    EXPECT_EQ(stage_.control("update", "/replay", "true"), "204");
    stage_.advance(50);
    EXPECT_EQ(watcher.take(), Events{"200 " + popup("Hint", R"(,"requested":false)")});

    EXPECT_EQ(stage_.ask(stage_.popups(), "update", "/One/Hint", R"({"requested":true})").substr(0, 3), "200");
    EXPECT_EQ(watcher.take().size(), 1U) << "changed by a client, by the simulator's rules";
    EXPECT_NE(stage_.control("retrieve", "/replay").find(R"("changesByClients":1)"), std::string::npos);
    EXPECT_EQ(stage_.ask(stage_.inputs(), "update", "/One/A", R"({"infoForAllLayers":[]})"), "204");
    EXPECT_EQ(ask(stage_.inputs(), "/One"),
              R"(200 {"regionInfoSorted":[{"regionID":2,"hmiName":"B","layer":"Top"}],"hapticInfoSorted":[]})");
    stage_.advance(100);
    EXPECT_EQ(watcher.take(), Events{"404 no popups there"});
    EXPECT_EQ(notes_, std::vector<std::string>{});
}

// Twice, the popup manager loses a source; once it is away, from 200 ms to 340 ms.
const std::vector<Entry> comingsAndGoings{state(1ms, popups, "[]"),
                                          state(2ms, others, "[]"),
                                          state(3ms, displays, "{}"),
                                          event(100ms, popups, EntryKind::lost),
                                          state(150ms, popups, "[]"),  // had been refused: the other one was not lost
                                          event(200ms, popups, EntryKind::lost),
                                          event(203ms, others, EntryKind::lost),
                                          state(300ms, popups, popup("A", "")),
                                          state(340ms, others, "[]"),
                                          event(500ms, displays, EntryKind::lost)};

TEST_F(Replaying, TakesManagersAwayAndBringsThemBack) {
    replay(comingsAndGoings, {.loops = true});
    stage_.advance(196);
    EXPECT_EQ(notes_, std::vector<std::string>{});
    stage_.advance(2);
    EXPECT_EQ(notes_, std::vector<std::string>{"popupmanager gone"}) << "from the first loss on";
    stage_.advance(138);
    EXPECT_EQ(notes_.size(), 1U) << "not before all have said something again";
    stage_.advance(2);
    EXPECT_EQ(notes_.back(), "popupmanager back");
    EXPECT_EQ(ask(stage_.popups(), "/One"), "200 " + popup("A", ""));
    stage_.advance(160);
    EXPECT_EQ(notes_.back(), "displaymanager gone");
    stage_.advance(100);
    EXPECT_EQ(notes_.back(), "displaymanager back") << "the next round begins";
    EXPECT_EQ(ask(stage_.popups(), "/One"), "200 []");
    stage_.advance(198);
    EXPECT_EQ(notes_.back(), "popupmanager gone");
}

TEST_F(Replaying, BeginsAndEndsWhereItIsTold) {
    replay(comingsAndGoings, {.start = "250ms", .end = "320ms", .speed = {}});
    EXPECT_FALSE(replay_->isThere(ManagerId::popup));
    EXPECT_FALSE(replay_->isThere(ManagerId::input)) << "it is not in the recording";
    EXPECT_TRUE(replay_->isThere(ManagerId::display));
    stage_.advance(5);
    EXPECT_EQ(notes_, std::vector<std::string>{}) << "it ends before that";
    EXPECT_EQ(ask(stage_.popups(), "/One"), "200 " + popup("A", ""));
    EXPECT_NE(replay_->status().find(R"("state":"over")"), std::string::npos);
}

TEST_F(Replaying, RefusesWhatCannotBeReplayed) {
    EXPECT_THROW(replay({state(1ms, {"/hmx", "/displays"}, "{}")}), hmx::client::Error) << "without the managers";
    EXPECT_THROW(replay({state(1ms, popups, "[]")}, {.start = "2s", .end = "1s"}), hmx::client::Error);
}

}  // namespace
}  // namespace hmxsim_tests
