#include "drivers/drivers.h"

#include <algorithm>

#include "harness/questions.h"
#include "harness/stage.h"

// The three upstream services run in one process. It is killed again and again while a client has requests of every kind open.
// In a third of the rounds the upstream services answer at once and the kill comes at a random moment, so it meets requests at
// every stage. In the other rounds the services are slow, so every request is still waiting for them.

namespace campaign {

void driveCrash(const Scope& scope, Random& random, Report& report) {
    constexpr unsigned inFlight = 20;
    const unsigned kills = scope.times(500, 25);
    Stage stage{scope};
    const auto bridge = stage.startBridge();
    auto sim = stage.startSim();
    stage.awaitServing();
    Client client{stage.socket("/hmx")};
    const std::vector<Question> questions = everyQuestion(client);
    client.forgetEnded();
    unsigned requests = 0;
    unsigned waiting = 0;
    unsigned lost = 0;
    unsigned unexplained = 0;
    double slowest = 0;
    for (unsigned round = 0; round < kills; ++round) {
        const bool isSlow = random.below(3) != 0;
        if (isSlow) stage.setFaults(R"({"delay_ms":2000})");
        std::vector<std::uint64_t> ids;
        for (unsigned i = 0; i < inFlight; ++i) {
            const Question& question = questions[random.below(questions.size())];
            ids.push_back(client.ask(question.command, question.path, question.oneShot, question.payload));
        }
        const auto killAt = Clock::now() + std::chrono::microseconds{random.below(4000)};
        client.serveUntil([&] { return Clock::now() >= killAt; }, milliseconds{5});
        waiting += static_cast<unsigned>(client.open());
        sim->signal(SIGKILL);
        const auto killedAt = Clock::now();
        client.serveUntil([&] { return client.open() == 0; }, milliseconds{5000});
        for (const std::uint64_t id : ids) {
            const Asked& asked = client.at(id);
            ++requests;
            if (!asked.isOver()) {
                ++lost;
                continue;
            }
            if (asked.endedAt > killedAt) {
                slowest = std::max(slowest, std::chrono::duration<double, std::milli>(asked.endedAt - killedAt).count());
            }
            const auto says = [&](std::string_view text) { return asked.answer.find(text) != std::string::npos; };
            if (asked.status >= 400 && !(asked.status == 503 && (says("not sent") || says("outcome unknown") ||
                                                                 says("no answer") || says("available")))) {
                ++unexplained;
                report.note(std::to_string(asked.status) + " " + asked.answer);
            }
        }
        if (client.isLost()) throw Failure{"the bridge has ended a connection:\n" + stage.log()};
        client.forgetEnded();
        sim = stage.startSim();
        stage.awaitServing();
    }
    client.serveUntil([] { return false; }, milliseconds{50});
    const auto counters = stage.status();
    report.fact("kills", kills);
    report.fact("requests", requests);
    report.fact("waiting at the kill", waiting);
    report.atMost("lost", lost, 0);
    report.atMost("ended twice", static_cast<double>(client.endedTwice()), 0);
    report.atMost("never asked", static_cast<double>(client.foreign()), 0);
    report.atMost("without a reason", unexplained, 0);
    report.atMost("slowest end", slowest, 250, "ms");
    report.atMost("left open", counters.at("published").at(0).at("openRequests").get<double>() - 1, 0);
}

}  // namespace campaign
