#include "drivers/drivers.h"

#include <sys/socket.h>

#include <array>
#include <filesystem>
#include <map>
#include <memory>

#include "harness/questions.h"
#include "harness/relay.h"
#include "harness/stage.h"
#include "harness/wire.h"

// Upstream, every byte passes through a relay. For each kind of request, the relay ends the connection after each byte of each
// message in turn: of the hellos, of the request and of its answer. Downstream, a client ends the connection after each byte that
// it sends, and after each byte that it reads.
//
// What an error says must be true. "not sent" is false for a request that arrived complete. A request that is still almost
// completely here when the connection ends must be called "not sent", not "outcome unknown".

namespace campaign {
namespace {

// The bridge with its upstream services behind relays.
class RelayedStage {
public:
    explicit RelayedStage(const Scope& scope) : front{scope}, back_{scope}, sim_{back_.startSim()} {
        for (const std::string_view manager : managers) {
            const std::string path = "/hmx" + std::string{manager};
            if (!eventually([&] { return std::filesystem::exists(back_.socket(path)); })) throw Failure{"no simulator"};
            relays_[manager] = std::make_unique<Relay>(front.socket(path), back_.socket(path));
        }
        bridge_ = front.startBridge();
        front.awaitServing();
    }
    Relay& relay(std::string_view manager) { return *relays_.at(manager); }

    const Stage front;

private:
    const Stage back_;
    std::unique_ptr<Process> sim_;
    std::map<std::string_view, std::unique_ptr<Relay>> relays_;
    std::unique_ptr<Process> bridge_;
};

// The results of all cuts.
struct Ledger {
    unsigned cuts = 0;
    unsigned lost = 0;
    unsigned falselyNotSent = 0;
    unsigned falselyUnknown = 0;
    unsigned notServedAgain = 0;
};

void awaitAnswer(Client& client, const Question& question, Ledger& ledger) {
    const bool served = eventually(
        [&] { return client.call(question.command, question.path, question.payload).status / 100 == 2; }, milliseconds{5000});
    if (!served) ++ledger.notServedAgain;
}

void cutUpstream(RelayedStage& stage, Client& client, const Question& question, unsigned step, Ledger& ledger) {
    Relay& relay = stage.relay(question.upstream);
    const auto passed = [&] { return std::array{relay.passed(Relay::Way::toProvider), relay.passed(Relay::Way::toClient)}; };
    awaitAnswer(client, question, ledger);
    const auto before = passed();
    awaitAnswer(client, question, ledger);
    const auto after = passed();
    // Cuts a request on the existing connection, then the first bytes of a new connection, which begins with the hellos.
    constexpr std::uint64_t helloLength = 100;
    for (const bool isHello : {false, true}) {
        for (const auto way : {Relay::Way::toProvider, Relay::Way::toClient}) {
            const auto index = static_cast<std::size_t>(way);
            const std::uint64_t length = isHello ? helloLength : after[index] - before[index];
            for (std::uint64_t at = 0; at < length; at += step) {
                ++ledger.cuts;
                if (isHello) {
                    relay.cutNextAfter(way, at);
                    relay.drop();
                } else {
                    relay.cutAfter(way, at);
                }
                const Asked& asked = client.call(question.command, question.path, question.payload, milliseconds{5000});
                if (!asked.isOver()) ++ledger.lost;
                const bool hasArrived = !isHello && way == Relay::Way::toClient;
                if (hasArrived && asked.answer.find("not sent") != std::string::npos) ++ledger.falselyNotSent;
                awaitAnswer(client, question, ledger);
                client.forgetEnded();
            }
        }
    }
}

// A request that is much larger than the socket buffers; the provider reads little or nothing of it.
void cutLargeRequests(RelayedStage& stage, Client& client, unsigned step, Ledger& ledger) {
    std::string regions;
    while (regions.size() < 700'000) {
        regions += regions.empty() ? "" : ",";
        regions +=
            R"({"layer":"Home","inputRegions":[{"bounds":{"height":10,"width":10,"upperLeftPoint":{"posX":1,"posY":1}}}]})";
    }
    const Question question{"insert", "/regionconfigurations",
                            R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","subComponent":"large","regions":)"
                            R"({"infoForAllLayers":[)" +
                                regions + "]}}",
                            true, managers[1]};
    Relay& relay = stage.relay(question.upstream);
    awaitAnswer(client, question, ledger);
    const auto before = relay.passed(Relay::Way::toProvider);
    awaitAnswer(client, question, ledger);
    const auto length = relay.passed(Relay::Way::toProvider) - before;
    constexpr std::uint64_t socketsHold = 500'000;
    if (length < socketsHold + 100'000) throw Failure{"the request is not large enough"};
    for (std::uint64_t at = 0; at < length; at += 8192UL * step) {
        ++ledger.cuts;
        relay.cutAfter(Relay::Way::toProvider, at);
        const Asked& asked = client.call(question.command, question.path, question.payload, milliseconds{5000});
        if (!asked.isOver()) ++ledger.lost;
        if (length - at > socketsHold && asked.answer.find("not sent") == std::string::npos) ++ledger.falselyUnknown;
        awaitAnswer(client, question, ledger);
        client.forgetEnded();
    }
}

// A client that leaves after the first `at` bytes that it sends, or after the first `at` bytes that it reads.
void cutDownstream(const Stage& stage, const Question& question, unsigned step, Ledger& ledger) {
    Bytes bytes = testing_support::helloFrame("/hmx");
    const std::size_t helloLength = bytes.size();
    const Bytes request = testing_support::requestFrame(1, question.command, question.path, question.oneShot, question.payload);
    bytes.insert(bytes.end(), request.begin(), request.end());
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        ++ledger.cuts;
        const testing_support::RawPeer peer{connectTo(stage.socket("/hmx"))};
        ::send(peer.fd(), bytes.data(), at, MSG_NOSIGNAL);
    }
    const auto ask = [&] {
        testing_support::RawPeer peer{connectTo(stage.socket("/hmx"))};
        peer.send(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(helloLength)));
        if (!peer.receive()) throw Failure{"no hello"};
        peer.send(request);
        return peer;
    };
    const auto answer = ask().receive();
    if (!answer) throw Failure{"no answer"};
    const std::size_t length = headerSize + answer->body.size();
    for (std::size_t at = 0; at < length; at += step) {
        ++ledger.cuts;
        const testing_support::RawPeer peer = ask();
        Bytes read(at);
        const timeval patience{10, 0};
        ::setsockopt(peer.fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (at > 0 && ::recv(peer.fd(), read.data(), at, MSG_WAITALL) < static_cast<ssize_t>(at)) ++ledger.lost;
    }
}

}  // namespace

void driveCut(const Scope& scope, Random& /*random*/, Report& report) {
    const unsigned step = scope.times(1, 41);
    RelayedStage stage{scope};
    Client client{stage.front.socket("/hmx")};
    Ledger ledger;
    const std::vector<Question> questions = everyQuestion(client);
    for (const Question& question : questions) {
        if (question.oneShot) cutUpstream(stage, client, question, step, ledger);
    }
    cutLargeRequests(stage, client, scope.times(1, 20), ledger);
    for (const Question& question : questions) cutDownstream(stage.front, question, step, ledger);
    client.serveUntil([] { return false; }, milliseconds{50});
    nlohmann::json status;
    const bool settled = eventually([&] {
        status = nlohmann::json::parse(client.get("/$platform/status"));
        for (const auto& tracked : status.at("tracked")) {
            if (tracked.at("pendingRequests") != 0) return false;
        }
        return status.at("published").at(0).at("openRequests") == 1 && status.at("counters").at("connectionsOpen") == 1;
    });
    if (!settled) report.note(status.dump());
    report.fact("cuts", ledger.cuts);
    report.atMost("lost", ledger.lost, 0);
    report.atMost("ended twice", static_cast<double>(client.endedTwice() + client.foreign()), 0);
    report.atMost("wrongly \"not sent\"", ledger.falselyNotSent, 0);
    report.atMost("wrongly \"outcome unknown\"", ledger.falselyUnknown, 0);
    report.atMost("not served again", ledger.notServedAgain, 0);
    report.atMost("left behind", settled ? 0 : 1, 0);
}

}  // namespace campaign
