#include "drivers/drivers.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "harness/stage.h"

// One client asks for every list as a stream, several times, and never reads. Changes are made upstream in batches. Between two
// batches another client asks, and its waiting time is measured. For comparison, the same is done before with everybody reading.

namespace campaign {
namespace {

constexpr unsigned streams = 8;
constexpr unsigned batch = 50;

struct Load {
    Client& control;
    Client& witness;
    const Process& bridge;
    unsigned value = 0;
    std::size_t mostMemory = 0;

    // Makes this number of changes. Returns the witness's waiting times, sorted, in milliseconds.
    std::vector<double> run(unsigned changes, Client* reader) {
        std::vector<double> waits;
        for (unsigned done = 0; done < changes; done += batch) {
            for (unsigned i = 0; i < batch; ++i) {
                ++value;
                control.ask("update", "/state/displaymanager/displays/Driver_Display", true,
                            R"({"terminal":)" + std::to_string(value) + "}");
            }
            waits.push_back(witness.call("retrieve", "/displays").took());
            if (witness.call("retrieve", "/displays").status != 200) throw Failure{"the witness is not served"};
            if (!control.serveUntil([&] { return control.open() == 0; })) throw Failure{"the simulator does not take changes"};
            control.forgetEnded();
            witness.forgetEnded();
            if (reader != nullptr) reader->serveUntil([] { return false; }, milliseconds{0});
            if (done % 2000 == 0) mostMemory = std::max(mostMemory, bridge.memoryKiB());
        }
        std::sort(waits.begin(), waits.end());
        return waits;
    }
};

double p99(const std::vector<double>& sorted) {
    return sorted.at(sorted.size() * 99 / 100);
}

std::vector<std::uint64_t> openStreams(Client& client) {
    std::vector<std::uint64_t> ids;
    for (unsigned i = 0; i < streams; ++i)
        ids.push_back(client.ask("retrieve", i % 2 == 0 ? "/displays" : "/layerconfigurations", false));
    return ids;
}

}  // namespace

void driveSlow(const Scope& scope, Random& /*random*/, Report& report) {
    const unsigned changes = scope.times(100'000, scope.isSanitized ? 2'000 : 10'000);
    Stage stage{scope};
    const auto sim = stage.startSim();
    const auto bridge = stage.startBridge();
    stage.awaitServing();
    const auto control = stage.connect("/hmxsim");
    const auto witness = stage.connect();
    control->keepsAnswers = false;
    witness->keepsAnswers = false;
    Load load{*control, *witness, *bridge};

    Client slow{stage.socket("/hmx")};
    double without = 0;
    {
        Client reader{stage.socket("/hmx")};
        openStreams(reader);
        without = p99(load.run(std::max(changes / 5, scope.isSanitized ? 2'000U : 5'000U), &reader));
    }
    const std::size_t before = bridge->memoryKiB();
    load.mostMemory = before;
    const auto ids = openStreams(slow);
    const double with = p99(load.run(changes, nullptr));
    const double grown = (static_cast<double>(load.mostMemory) - static_cast<double>(before)) / 1024;

    // The slow client reads again and must receive the newest value without a further change.
    const auto newest = [&](std::uint64_t id) {
        const auto& asked = slow.at(id);
        if (asked.isOver() || asked.answer.empty()) return false;
        const auto element = nlohmann::json::parse(asked.answer).at("data").at(0);
        return !element.contains("terminal") || element.at("terminal") == load.value;
    };
    const auto since = Clock::now();
    const bool resumed = slow.serveUntil(
        [&] { return std::all_of(ids.begin(), ids.end(), [&](std::uint64_t id) { return newest(id); }); }, milliseconds{5000});
    const double caughtUp = millisecondsSince(since);
    unsigned read = 0;
    for (const std::uint64_t id : ids) read += slow.at(id).values;
    report.fact("changes", changes);
    report.fact("values read in the end", read);
    report.atMost("memory above the start", grown, scope.isSanitized ? 64 : 8, "MiB");
    report.fact("p99 of another client without", without, "ms");
    report.atMost("with, as a multiple", with / without, 5, "times");
    report.atMost("newest value missed", resumed ? 0 : 1, 0);
    report.atMost("caught up after", caughtUp, 1000, "ms");
}

}  // namespace campaign
