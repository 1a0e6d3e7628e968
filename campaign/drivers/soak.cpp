#include "drivers/drivers.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include "harness/questions.h"
#include "harness/stage.h"

// Normal operation, accelerated: eight clients ask for everything, some of it as streams. Four times a second one of them leaves
// and another one arrives, and every few seconds an upstream service is killed and returns. Nothing may be lost, and nothing may
// accumulate.

namespace campaign {
namespace {

constexpr std::size_t clientCount = 8;
constexpr milliseconds askPause{5};
constexpr milliseconds changePause{250};
constexpr milliseconds killPause{5000};
constexpr milliseconds lookPause{1000};

// The growth of the values from the first to the last, by linear regression.
double growth(const std::vector<double>& values) {
    const auto count = static_cast<double>(values.size());
    double meanY = 0;
    for (const double value : values) meanY += value / count;
    const double meanX = (count - 1) / 2;
    double xy = 0;
    double xx = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double x = static_cast<double>(i) - meanX;
        xy += x * (values[i] - meanY);
        xx += x * x;
    }
    return xx == 0 ? 0 : xy / xx * (count - 1);
}

}  // namespace

void driveSoak(const Scope& scope, Random& random, Report& report) {
    const milliseconds duration{scope.isCut ? 60'000 : 600'000};
    Stage stage{scope};
    std::vector<std::unique_ptr<Process>> upstreams;
    for (const std::string_view manager : managers) upstreams.push_back(stage.startSim({std::string{manager}}));
    const auto bridge = stage.startBridge();
    stage.awaitServing();
    std::vector<Question> questions;
    {
        const auto client = stage.connect();
        questions = everyQuestion(*client);
    }
    std::vector<std::unique_ptr<Client>> clients(clientCount);
    const auto come = [&](std::unique_ptr<Client>& client) {
        client = stage.connect();
        client->keepsAnswers = false;
    };
    for (auto& client : clients) come(client);
    unsigned asked = 0;
    unsigned kills = 0;
    unsigned changes = 0;
    double lost = 0;
    double twice = 0;
    unsigned cut = 0;
    const auto settle = [&](Client& client) {
        // Before a client leaves, its one-shot requests must end; it abandons its streams.
        client.serveUntil(
            [&] {
                return std::all_of(client.all().begin(), client.all().end(),
                                   [](const auto& entry) { return entry.second.isOver() || !entry.second.oneShot; });
            },
            milliseconds{12'000});
        for (const auto& [id, each] : client.all()) lost += !each.isOver() && each.oneShot ? 1 : 0;
        twice += static_cast<double>(client.endedTwice() + client.foreign());
        if (client.isLost()) ++cut;
    };
    const std::size_t descriptors = bridge->descriptors();
    const std::size_t threads = bridge->threads();
    std::vector<double> memory;
    const auto begin = Clock::now();
    auto nextAsk = begin;
    auto nextChange = begin + changePause;
    auto nextKill = begin + killPause;
    auto nextLook = begin + duration / 5;  // by then, caches and buffers have reached their full size
    while (Clock::now() < begin + duration) {
        const auto now = Clock::now();
        if (now >= nextAsk) {
            const Question& question = questions[random.below(questions.size())];
            Client& client = *clients[random.below(clients.size())];
            // A client keeps a few streams and asks for the rest once.
            client.ask(question.command, question.path, question.oneShot || client.open() >= 10, question.payload);
            if (++asked % 64 == 0) client.forgetEnded();
            nextAsk += askPause;
        }
        if (now >= nextChange) {
            auto& client = clients[random.below(clients.size())];
            if (random.below(2) == 0) settle(*client);
            come(client);
            ++changes;
            nextChange += changePause;
        }
        if (now >= nextKill) {
            auto& upstream = upstreams[kills % upstreams.size()];
            upstream->kill();
            upstream = stage.startSim({std::string{managers[kills % upstreams.size()]}});
            ++kills;
            nextKill += killPause;
        }
        if (now >= nextLook) {
            memory.push_back(static_cast<double>(bridge->memoryKiB()) / 1024);
            nextLook += lookPause;
        }
        for (auto& client : clients) client->serveUntil([] { return false; }, milliseconds{0});
        std::this_thread::sleep_for(std::min<Clock::duration>(milliseconds{1}, nextAsk - Clock::now()));
    }
    for (auto& client : clients) settle(*client);
    const auto same = [&] { return bridge->descriptors() <= descriptors && bridge->threads() == threads; };
    const bool isSame = eventually(same, milliseconds{3000});
    report.fact("seconds", static_cast<double>(duration.count()) / 1000);
    report.fact("requests", asked);
    report.fact("kills", kills);
    report.fact("clients that came", changes);
    report.atMost("lost", lost, 0);
    report.atMost("ended twice", twice, 0);
    report.atMost("clients cut", cut, 0);
    report.fact("descriptors", static_cast<double>(bridge->descriptors()));
    report.atMost("descriptors or threads more than at the start", isSame ? 0 : 1, 0);
    report.fact("memory", memory.back(), "MiB");
    report.atMost("growth", growth(memory), scope.isSanitized ? 64 : 1, "MiB");
}

}  // namespace campaign
