#include "drivers/drivers.h"

#include <sys/wait.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "harness/faults.h"
#include "harness/questions.h"
#include "harness/stage.h"

// The same scenario many times: the bridge starts, answers a client's requests of every kind, loses an upstream service and gets
// it back, and answers again. Each time another allocation fails, starting with the first. The bridge may then continue as if
// nothing had happened, end a request with an error, end a connection, or end itself with a message. It must not give a wrong
// answer, leave a request without an end, or hang.

namespace campaign {
namespace {

struct Outcome {
    enum class Kind { served, endedSomething, endedOrderly, aborted, brokeDown, stoodStill, wrong } kind = Kind::served;
    std::string what;
};

class Scenario {
    static constexpr unsigned rounds = 4;

public:
    explicit Scenario(const Scope& scope) : stage_{scope}, faults_{scope, stage_.folder() + "/faults"} {
        sim_ = stage_.startSim();
        const auto bridge = stage_.startBridge();
        stage_.awaitServing();
        const auto client = stage_.connect();
        questions_ = everyQuestion(*client);
        // Twice, because the first round changes what the second one gets.
        for (unsigned round = 0; round < 2; ++round) {
            expected_.clear();
            for (const Question& question : questions_)
                expected_.push_back(client->call(question.command, question.path, question.payload).answer);
        }
    }

    // The allocation with this number fails; 0 means none. `allocations` receives how many there were.
    Outcome run(std::uint64_t number, std::uint64_t& allocations) {
        faults_.set(Call::allocate, {.action = Action::fail, .error = ENOMEM, .from = number, .times = number == 0 ? 0U : 1U});
        const auto bridge = stage_.startBridge(faults_.environment());
        Outcome outcome = play(*bridge);
        allocations = faults_.calls(Call::allocate);
        faults_.clear();
        if (!bridge->isRunning()) return deathOf(*bridge);
        if (outcome.kind == Outcome::Kind::wrong) return outcome;
        // Whatever happened in the scenario, the bridge must work afterwards.
        if (!eventually([&] { return stage_.isServing() || !bridge->isRunning(); }, milliseconds{3000}))
            return {Outcome::Kind::stoodStill, "does not serve afterwards"};
        return bridge->isRunning() ? outcome : deathOf(*bridge);
    }

    std::string log() const { return stage_.log(); }

private:
    Outcome deathOf(const Process& bridge) {
        const int status = bridge.status();
        if (WIFEXITED(status)) return {Outcome::Kind::endedOrderly, {}};
        if (WTERMSIG(status) == SIGABRT) return {Outcome::Kind::aborted, {}};
        return {Outcome::Kind::brokeDown, "ended by signal " + std::to_string(WTERMSIG(status))};
    }

    Outcome play(Process& bridge) {
        std::unique_ptr<Client> client;
        const bool came = eventually(
            [&] {
                if (!bridge.isRunning()) return true;
                try {
                    client = std::make_unique<Client>(stage_.socket("/hmx"));
                } catch (const Failure&) {
                }
                return client != nullptr;
            },
            milliseconds{3000});
        if (!came) return {Outcome::Kind::stoodStill, "does not come to serve"};
        // From these lists, the bridge learns its elements.
        for (const Question& question : questions_) {
            if (client && question.command == "retrieve" && question.path.find('/', 1) == std::string::npos)
                client->call(question.command, question.path, question.payload, milliseconds{3000});
        }
        Outcome outcome;
        for (unsigned round = 0; client && round < rounds; ++round) {
            std::vector<std::uint64_t> ids;
            for (const Question& question : questions_)
                ids.push_back(client->ask(question.command, question.path, question.oneShot, question.payload));
            const auto isOver = [&] {
                for (std::size_t i = 0; i < ids.size(); ++i) {
                    const Asked& asked = client->at(ids[i]);
                    if (!asked.isOver() && (questions_[i].oneShot || asked.values == 0)) return false;
                }
                return true;
            };
            if (!client->serveUntil(isOver, milliseconds{3000}) && !client->isLost())
                return bridge.isRunning() ? Outcome{Outcome::Kind::stoodStill, "a request has no end"} : outcome;
            for (std::size_t i = 0; i < ids.size(); ++i) {
                const Asked& asked = client->at(ids[i]);
                if (asked.status != 200) outcome.kind = Outcome::Kind::endedSomething;
                if (asked.status == 200 && asked.answer != expected_[i])
                    return {Outcome::Kind::wrong, questions_[i].path + " was answered " + asked.answer.substr(0, 200)};
            }
            if (client->endedTwice() + client->foreign() > 0) return {Outcome::Kind::wrong, "a request ended twice"};
        }
        return outcome;
    }

    Stage stage_;
    Faults faults_;
    std::unique_ptr<Process> sim_;
    std::vector<Question> questions_;
    std::vector<std::string> expected_;
};

}  // namespace

void driveMemory(const Scope& scope, Random& /*random*/, Report& report) {
    constexpr std::uint64_t points = 2000;
    Scenario scenario{scope};
    std::uint64_t allocations = 0;
    scenario.run(0, allocations);
    std::map<Outcome::Kind, unsigned> outcomes;
    for (std::uint64_t number = 1; number <= points; number += scope.times(1, 41)) {
        std::uint64_t ignored = 0;
        const Outcome outcome = scenario.run(number, ignored);
        ++outcomes[outcome.kind];
        if (!outcome.what.empty()) report.note("allocation " + std::to_string(number) + ": " + outcome.what);
    }
    using Kind = Outcome::Kind;
    report.fact("allocations in the scenario", static_cast<double>(allocations));
    report.fact("served nevertheless", outcomes[Kind::served]);
    report.fact("ended a request or a connection", outcomes[Kind::endedSomething]);
    report.fact("ended itself with a message", outcomes[Kind::endedOrderly]);
    report.fact("aborted", outcomes[Kind::aborted]);
    report.atMost("broke down", outcomes[Kind::brokeDown], 0);
    report.atMost("stood still", outcomes[Kind::stoodStill], 0);
    report.atMost("reported something wrong", outcomes[Kind::wrong], 0);
}

}  // namespace campaign
