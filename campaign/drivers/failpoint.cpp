#include "drivers/drivers.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "harness/faults.h"
#include "harness/questions.h"
#include "harness/stage.h"

// One upstream service at a time is killed, stopped or cut off at one step of its life: while it enters the directory, when it is
// connected to, at its hello, and before and after each call with which it receives a request and answers it. Meanwhile a client
// asks for everything, and every request must end: at once if the service died, at its deadline if the service is stopped. Then
// the service is continued or replaced, and everything must work as before.
//
// Each case has a stage of its own, so the cases that wait for a deadline can wait in parallel.

namespace campaign {
namespace {

struct Step {
    const char* name;
    Call call;
    std::uint64_t number;  // which one of these calls
    bool isBirth;          // before anybody can ask the service anything
};

// The first message that a service receives is a hello, and the first that it sends is its answer.
constexpr Step steps[] = {
    {"unlink", Call::unlink, 1, true},          {"bind", Call::bind, 1, true},
    {"rename", Call::rename, 1, true},          {"connect", Call::accept, 1, true},
    {"hello received", Call::receive, 1, true}, {"hello sent", Call::send, 1, true},
    {"receive", Call::receive, 1, false},       {"reply", Call::send, 1, false},
    {"third reply", Call::send, 3, false},
};

// "handle" is between the two: after receiving and before sending.
constexpr std::pair<Action, const char*> actions[] = {
    {Action::kill, "killed before"},       {Action::killAfter, "killed behind"}, {Action::stop, "stopped before"},
    {Action::stopAfter, "stopped behind"}, {Action::reset, "cut off at"},
};

struct Case {
    std::string_view manager;
    const Step* step;
    Action action;
    const char* how;

    bool isStop() const { return action == Action::stop || action == Action::stopAfter; }
    std::string text() const { return std::string{manager} + " " + how + " " + step->name; }
};

struct Findings {
    std::mutex mutex;
    unsigned requests = 0;
    unsigned met = 0;
    unsigned lost = 0;
    unsigned twice = 0;
    unsigned late = 0;
    unsigned notServedAgain = 0;
    unsigned broken = 0;
    std::vector<std::string> notes;
};

void run(const Scope& scope, const Case& what, Findings& findings) {
    Stage stage{scope};
    Faults faults{scope, stage.folder() + "/faults"};
    const auto bridge = stage.startBridge();
    std::vector<std::unique_ptr<Process>> others;
    for (const std::string_view manager : managers) {
        if (manager != what.manager) others.push_back(stage.startSim({std::string{manager}}));
    }
    const auto start = [&] { return stage.startSim({std::string{what.manager}}, faults.environment()); };
    // In its first life the bridge starts to serve, and the questions become known.
    auto victim = start();
    stage.awaitServing();
    const auto client = stage.connect();
    const std::vector<Question> questions = everyQuestion(*client);
    client->forgetEnded();
    const auto arm = [&] { faults.set(what.step->call, {.action = what.action, .from = what.step->number, .times = 1}); };
    const std::uint64_t before = faults.hits();
    if (what.step->isBirth) {
        victim->kill();
        arm();
        victim = start();
        eventually([&] { return faults.hits() > before; }, milliseconds{2000});
    } else {
        arm();
    }
    std::vector<std::uint64_t> ids;
    for (unsigned i = 0; i < 3 * questions.size(); ++i) {
        const Question& question = questions[i % questions.size()];
        ids.push_back(client->ask(question.command, question.path, true, question.payload));
        // One at a time, because answers to many requests at once go out in one piece.
        client->serveUntil([&] { return client->at(ids.back()).isOver(); }, milliseconds{2});
    }
    const auto asked = Clock::now();
    const bool ended = client->serveUntil([&] { return client->open() == 0; }, milliseconds{what.isStop() ? 12'000 : 3'000});
    const double took = millisecondsSince(asked);
    const bool met = faults.hits() > before;
    faults.clear();
    if (what.isStop()) victim->signal(SIGCONT);
    const bool isDead = what.action == Action::kill || what.action == Action::killAfter;
    if (met && isDead && !victim->waitForEnd(2000)) throw Failure{"a killed process lives"};
    if (!victim->isRunning()) victim = start();
    const bool serves = eventually([&] { return stage.isServing(); }, milliseconds{8'000});
    client->serveUntil([] { return false; }, milliseconds{20});

    const std::lock_guard lock{findings.mutex};
    findings.requests += static_cast<unsigned>(ids.size());
    if (met) ++findings.met;
    findings.lost += static_cast<unsigned>(client->open());
    findings.twice += static_cast<unsigned>(client->endedTwice() + client->foreign());
    if (ended && !what.isStop() && took > 1000) ++findings.late;
    if (!serves) ++findings.notServedAgain;
    if (!ended || !serves || !met) {
        findings.notes.push_back(what.text() + (met ? "" : ": never came to it") + (ended ? "" : ": requests have no end") +
                                 (serves ? "" : ": not served again\n" + stage.log()));
    }
}

}  // namespace

void driveFailpoint(const Scope& scope, Random& random, Report& report) {
    std::vector<Case> cases;
    for (const std::string_view manager : managers) {
        for (const Step& step : steps) {
            for (const auto& [action, how] : actions) {
                const bool hasConnection = step.call == Call::receive || step.call == Call::send;
                if (action == Action::reset && !hasConnection) continue;
                cases.push_back({manager, &step, action, how});
            }
        }
    }
    // The cases with stopped services start first; the others run while these wait.
    std::stable_partition(cases.begin(), cases.end(), [](const Case& each) { return each.isStop(); });
    if (scope.isCut) {
        std::erase_if(cases, [](const Case& each) { return each.isStop(); });
        while (cases.size() > 30) cases.erase(cases.begin() + static_cast<std::ptrdiff_t>(random.below(cases.size())));
    }
    Findings findings;
    std::atomic<std::size_t> nextCase{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < (scope.isCut ? 4U : 16U); ++i) {
        threads.emplace_back([&] {
            for (std::size_t at = nextCase++; at < cases.size(); at = nextCase++) {
                try {
                    run(scope, cases[at], findings);
                } catch (const std::exception& error) {
                    const std::lock_guard lock{findings.mutex};
                    ++findings.broken;
                    findings.notes.push_back(cases[at].text() + ": " + error.what());
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (std::string& note : findings.notes) report.note(std::move(note));
    report.fact("failpoints", static_cast<double>(cases.size()));
    report.fact("requests", findings.requests);
    report.atLeast("met", findings.met, static_cast<double>(cases.size()));
    report.atMost("lost", findings.lost, 0);
    report.atMost("ended twice", findings.twice, 0);
    report.atMost("ended late", findings.late, 0);
    report.atMost("not served again", findings.notServedAgain, 0);
    report.atMost("cases that could not be driven", findings.broken, 0);
}

}  // namespace campaign
