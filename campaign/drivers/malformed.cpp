#include "drivers/drivers.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

#include "harness/questions.h"
#include "harness/relay.h"
#include "harness/stage.h"

// Valid frames of every kind are damaged in many ways and sent to a working bridge. A witness repeats the same question and must
// always get the same answer. Upstream, a relay damages the display manager's answers: the request must still end once, and the
// next one must be answered.

namespace campaign {
namespace {

using testing_support::RawPeer;

void append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

std::vector<Bytes> soundFrames(const std::vector<Question>& questions) {
    std::vector<Bytes> frames{testing_support::helloFrame("/hmx")};
    std::uint64_t id = 0;
    for (const Question& question : questions) {
        frames.push_back(
            testing_support::requestFrame(++id, question.command, question.path, question.oneShot, question.payload));
        frames.push_back(answerFrame(cancel, 0, id, 0, {}));
    }
    frames.push_back(testing_support::requestFrame(++id, "retrieve", "/$platform/status"));
    frames.push_back(answerFrame(next, endFlag, id, 200, R"({"total":0})"));
    frames.push_back(answerFrame(error, 0, id, 404, "no"));
    return frames;
}

void damage(Bytes& bytes, Random& random) {
    if (bytes.empty()) return;
    const auto place = [&] { return bytes.begin() + static_cast<std::ptrdiff_t>(random.below(bytes.size())); };
    // Most of the damage is done where bytes have a meaning: in the header and the map after it.
    const auto early = [&] {
        return bytes.begin() + static_cast<std::ptrdiff_t>(random.below(std::min<std::size_t>(bytes.size(), 40)));
    };
    constexpr std::uint8_t edges[] = {0x00, 0x01, 0x7f, 0x80, 0xff, 0xbf, 0x9f, 0x5f, 0x7b, 0xa0, 0xc0, 0x1b};
    switch (random.below(9)) {
        case 0:
            *place() ^= static_cast<std::uint8_t>(1U << random.below(8));
            break;
        case 1:
            *early() = edges[random.below(std::size(edges))];
            break;
        case 2:
            *early() = static_cast<std::uint8_t>(random.below(256));
            break;
        case 3:
            bytes.erase(place(), bytes.end());
            break;
        case 4:
            bytes.insert(place(), random.below(40), static_cast<std::uint8_t>(random.below(256)));
            break;
        case 5: {
            const auto from = place();
            bytes.erase(from,
                        from + std::min<std::ptrdiff_t>(bytes.end() - from, 1 + static_cast<std::ptrdiff_t>(random.below(8))));
            break;
        }
        case 6: {
            const Bytes copy = bytes;
            append(bytes, copy);
            break;
        }
        case 7:  // a length that is not the frame's
            for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 3); ++i)
                bytes[i] = static_cast<std::uint8_t>(random.below(i == 2 ? 17 : 256));
            break;
        default:
            std::swap(*place(), *place());
    }
}

// Repeats the same question.
class Witness {
public:
    explicit Witness(const Stage& stage) : client_{stage.connect()}, expected_{client_->get("/displayables")} {}
    // Asks once more, and counts an answer that differs.
    void ask() {
        const Asked& asked = client_->call("retrieve", "/displayables");
        ++asked_;
        if (!asked.isOver() || asked.status != 200 || asked.answer != expected_) ++disturbed_;
        slowest_ = std::max(slowest_, asked.took());
        client_->forgetEnded();
    }
    unsigned asked() const noexcept { return asked_; }
    unsigned disturbed() const noexcept { return disturbed_; }
    double slowest() const noexcept { return slowest_; }

private:
    std::unique_ptr<Client> client_;
    const std::string expected_;
    unsigned asked_ = 0;
    unsigned disturbed_ = 0;
    double slowest_ = 0;
};

// Sends this number of damaged frames.
void floodWithDamage(const Stage& stage, Witness& witness, unsigned frames, Random& random) {
    const auto client = stage.connect();
    const std::vector<Bytes> sound = soundFrames(everyQuestion(*client));
    for (unsigned sent = 0; sent < frames;) {
        const RawPeer peer{connectTo(stage.socket("/hmx"))};
        // Usually after a valid hello, so that the damage gets further.
        if (random.below(8) != 0) ::send(peer.fd(), sound[0].data(), sound[0].size(), MSG_NOSIGNAL);
        for (std::uint64_t more = 1 + random.below(4); more > 0; --more, ++sent) {
            Bytes bytes = sound[random.below(sound.size())];
            for (std::uint64_t times = 1 + random.below(3); times > 0; --times) damage(bytes, random);
            if (::send(peer.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) break;
        }
        pollfd ready{peer.fd(), POLLIN, 0};
        if (random.below(4) == 0) ::poll(&ready, 1, 1);
        witness.ask();
    }
}

}  // namespace

void driveMalformed(const Scope& scope, Random& random, Report& report) {
    const unsigned frames = scope.times(10'000, 1'000);
    Stage stage{scope};
    const auto sim = stage.startSim();
    const auto bridge = stage.startBridge();
    stage.awaitServing();
    Witness witness{stage};
    const pid_t pid = bridge->pid();
    floodWithDamage(stage, witness, frames, random);
    const auto status = stage.status();
    const bool settled =
        eventually([&] { return stage.status().at("counters").at("connectionsOpen").get<double>() <= 2; }, milliseconds{8000});
    report.fact("damaged frames", frames);
    report.fact("connections ended for them", Stage::counter(status, "malformedPeers"));
    report.fact("witness asked", witness.asked());
    report.atMost("disturbed", witness.disturbed(), 0);
    report.atMost("slowest", witness.slowest(), 500, "ms");
    report.atMost("bridge died", bridge->isRunning() && bridge->pid() == pid && status.at("pid") == pid ? 0 : 1, 0);
    report.atMost("connections left", settled ? 0 : 1, 0);
}

void driveDamagedAnswers(const Scope& scope, Random& random, Report& report) {
    const unsigned rounds = scope.times(2'000, 200);
    Stage back{scope};
    Stage front{scope};
    const auto sim = back.startSim();
    if (!eventually([&] { return std::filesystem::exists(back.socket("/hmxsim")); })) throw Failure{"no simulator"};
    Relay display{front.socket("/hmxdisplaymanager"), back.socket("/hmxdisplaymanager")};
    Relay input{front.socket("/hmxinputmanager"), back.socket("/hmxinputmanager")};
    Relay popups{front.socket("/hmxpopupmanager"), back.socket("/hmxpopupmanager")};
    const auto bridge = front.startBridge();
    front.awaitServing();
    const auto client = front.connect();
    unsigned lost = 0;
    unsigned answered = 0;
    unsigned silent = 0;
    unsigned notServedAgain = 0;
    unsigned otherDisturbed = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        const auto bit = static_cast<std::uint8_t>(1U << random.below(8));
        display.damage(Relay::Way::toClient, random.below(2) == 0 ? random.below(60) : random.below(2000), bit);
        const auto id = client->ask("retrieve", "/displays");
        const Asked& asked = client->at(id);
        const auto isOver = [&] { return asked.isOver(); };
        if (!client->serveUntil(isOver, milliseconds{50})) {
            // With a damaged length, the bridge waits for bytes that never come; with a damaged id, for an answer that never
            // comes. Before the deadline, only the end of the connection reveals either.
            ++silent;
            display.drop();
            if (!client->serveUntil(isOver, milliseconds{5'000})) ++lost;
        }
        if (asked.status == 200) ++answered;
        display.damage(Relay::Way::toClient, 0, 0);
        if (client->call("retrieve", "/popups", R"({"display":"Driver_Display"})").status != 200) ++otherDisturbed;
        if (!eventually([&] { return client->call("retrieve", "/displays").status == 200; }, milliseconds{12'000}))
            ++notServedAgain;
        client->forgetEnded();
    }
    report.fact("damaged answers", rounds);
    report.fact("answered nevertheless", answered);
    report.fact("waiting without an answer", silent);
    report.atMost("lost", lost, 0);
    report.atMost("ended twice", static_cast<double>(client->endedTwice() + client->foreign()), 0);
    report.atMost("other service disturbed", otherDisturbed, 0);
    report.atMost("not served again", notServedAgain, 0);
}

}  // namespace campaign
