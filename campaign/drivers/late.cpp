#include "drivers/drivers.h"

#include <atomic>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "harness/questions.h"
#include "harness/scripted_provider.h"
#include "harness/stage.h"

// The display manager follows a script. With each correct answer it sends others: to requests that are over, to requests that
// never existed, to ids that belong to another place in the table, and the correct answer again. None of these may reach a
// client. A cancelled request is still answered, and after that a new request may use its place.

namespace campaign {
namespace {

const std::string rightAnswer = R"({"displays":[{"id":1,"name":"Right"}]})";
const std::string wrongAnswer = R"({"displays":[{"id":1,"name":"Wrong"}]})";

// The popup manager is stopped for longer than requests wait for it, then reads what has accumulated in its socket. None of this
// may be an update that was reported as "not sent".
void notSent(const Scope& scope, Report& report) {
    constexpr unsigned updates = 200;
    Stage stage{scope};
    std::atomic<bool> isStopped{false};
    std::mutex mutex;
    std::set<std::string> arrived;
    const auto script = [&](const Frame& frame, const ScriptedProvider::Send& send) {
        while (isStopped) std::this_thread::sleep_for(milliseconds{5});
        if (frame.type != request) return;
        const std::size_t number = frame.payload.find('#');
        if (number != std::string_view::npos) {
            const std::lock_guard lock{mutex};
            arrived.emplace(frame.payload.substr(number, frame.payload.find('"', number) - number));
        }
        const bool isList = frame.text("$request-command") == "retrieve";
        send(answerFrame(next, endFlag, frame.id, 200, isList ? R"([{"name":"Popup"}])" : R"({"name":"Popup"})"));
    };
    const ScriptedProvider popups{stage.socket("/hmxpopupmanager"), script};
    const auto sim = stage.startSim({"displaymanager", "inputmanager"});
    const auto bridge = stage.startBridge();
    const auto client = stage.connect();
    const auto list = [&] { return client->call("retrieve", "/popups", R"({"display":"Driver_Display"})"); };
    if (!eventually([&] { return list().status == 200; })) throw Failure{"no popups:\n" + stage.log()};
    const std::string id = nlohmann::json::parse(list().answer).at("data").at(0).at("id");
    isStopped = true;
    std::vector<std::uint64_t> asked;
    for (unsigned i = 0; i < updates; ++i) {
        const std::string data = std::string(4096, '.') + "#" + std::to_string(i);
        asked.push_back(client->ask("update", "/popups/" + id, true, R"({"requestData":")" + data + R"("})"));
    }
    client->serveUntil([&] { return client->open() == 0; }, milliseconds{20'000});
    isStopped = false;
    // This request is answered after all of them.
    report.atMost("did not continue", list().status == 200 ? 0 : 1, 0);
    unsigned called = 0;
    unsigned falsely = 0;
    const std::lock_guard lock{mutex};
    for (unsigned i = 0; i < updates; ++i) {
        if (client->at(asked[i]).answer.find("not sent") == std::string::npos) continue;
        ++called;
        falsely += arrived.contains("#" + std::to_string(i)) ? 1 : 0;
    }
    report.atLeast("called \"not sent\"", called, 20);
    report.atMost("of these carried out", falsely, 0);
}

}  // namespace

void driveLate(const Scope& scope, Random& random, Report& report) {
    const unsigned wanted = scope.times(100'000, 5'000);
    Stage stage{scope};
    std::atomic<unsigned> wrong{0};
    std::vector<std::uint64_t> past;
    const auto script = [&](const Frame& frame, const ScriptedProvider::Send& send) {
        if (frame.type != request) return;
        const auto say = [&](std::uint8_t type, std::uint64_t id) {
            if (id == 0) return;
            send(answerFrame(type, random.below(2) == 0 ? endFlag : std::uint8_t{0}, id, 200, wrongAnswer));
            ++wrong;
        };
        constexpr std::uint8_t types[] = {next, error, completed};
        const auto lie = [&](std::uint64_t id) {
            const std::uint8_t type = types[random.below(3)];
            if (type == next) {
                say(type, id);
            } else {
                send(answerFrame(type, 0, id, 500, "Wrong"));
                ++wrong;
            }
        };
        for (unsigned i = 0; i < 5; ++i) {
            lie(frame.id + 65536 * (1 + random.below(5)));            // this place in the table, earlier or later
            lie(frame.id ^ (1U << random.below(16)));                 // another place
            lie(random.below(~std::uint64_t{0}) | 1);                 // any id
            if (!past.empty()) lie(past[random.below(past.size())]);  // a request that is over
        }
        send(answerFrame(next, endFlag, frame.id, 200, rightAnswer));
        lie(frame.id);
        past.push_back(frame.id);
    };
    const ScriptedProvider display{stage.socket("/hmxdisplaymanager"), script};
    const auto sim = stage.startSim({"inputmanager", "popupmanager"});
    const auto bridge = stage.startBridge();
    const auto client = stage.connect();
    if (!eventually([&] { return client->call("retrieve", "/displays").status == 200; }))
        throw Failure{"no answer:\n" + stage.log()};
    const double late = Stage::counter(stage.status(), "lateFrames");
    const unsigned before = wrong;
    unsigned asked = 0;
    unsigned delivered = 0;
    unsigned unanswered = 0;
    while (wrong - before < wanted) {
        // One after the other, so that the false answers for other places in the table are about free ones.
        const Asked& answer = client->call("retrieve", "/displays");
        ++asked;
        if (!answer.isOver() || answer.status != 200 || answer.values != 1) ++unanswered;
        if (answer.answer.find("Wrong") != std::string::npos) ++delivered;
        client->forgetEnded();
    }
    client->serveUntil([] { return false; }, milliseconds{50});
    const bool counted =
        eventually([&] { return Stage::counter(stage.status(), "lateFrames") - late >= wrong - before; }, milliseconds{2000});
    // Downstream, a client that sends answers must lose its connection, and cancels of unknown requests must be counted.
    report.fact("requests", asked);
    report.fact("wrong answers", wrong - before);
    report.atMost("delivered", delivered + static_cast<double>(client->endedTwice() + client->foreign()), 0);
    report.atMost("unanswered", unanswered, 0);
    report.atMost("not counted", counted ? 0 : 1, 0);
    notSent(scope, report);
}

}  // namespace campaign
