#include "drivers/drivers.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "harness/stage.h"

// One client exceeds each limit in turn. Meanwhile another client keeps asking and must always be answered. The service itself
// reports the limits and how often they were exceeded.

namespace campaign {
namespace {

using testing_support::RawPeer;

class Floods {
public:
    Floods(const Stage& stage, Report& report, unsigned scale)
        : stage_{stage}, report_{report}, scale_{scale}, witness_{stage.connect()}, limits_(status().at("limits")) {}

    double limit(const char* name) const { return limits_.at(name); }
    double counter(const char* name) { return status().at("counters").at(name); }
    std::unique_ptr<Client> client() const { return std::make_unique<Client>(stage_.socket("/hmx")); }
    const Stage& stage() const noexcept { return stage_; }
    unsigned scale() const noexcept { return scale_; }
    Report& report() noexcept { return report_; }

    // The other client asks for `path`.
    void witness(const char* path = "/displays") {
        const Asked& asked = witness_->call("retrieve", path);
        ++asked_;
        if (!asked.isOver() || asked.status != 200) {
            ++unserved_;
            report_.note("the witness heard " + std::to_string(asked.status) + " " + asked.answer);
        }
        slowest_ = std::max(slowest_, asked.took());
        witness_->forgetEnded();
    }
    nlohmann::json status() { return nlohmann::json::parse(witness_->get("/$platform/status")); }
    void tell() {
        report_.fact("other client's requests", asked_);
        report_.atMost("not served", unserved_, 0);
        report_.atMost("slowest", slowest_, 1000, "ms");
    }

private:
    const Stage& stage_;
    Report& report_;
    const unsigned scale_;
    std::unique_ptr<Client> witness_;
    const nlohmann::json limits_;
    unsigned asked_ = 0;
    unsigned unserved_ = 0;
    double slowest_ = 0;
};

// The number of this client's requests that were refused because of the limit.
unsigned refused(const Client& client) {
    unsigned count = 0;
    for (const auto& [id, asked] : client.all()) {
        if (asked.isOver() && asked.status == 503 && asked.answer.find("too many requests in flight") != std::string::npos)
            ++count;
    }
    return count;
}

// Sends more requests than allowed to a provider that does not answer; then cancels them.
void requestsInFlight(Floods& floods, const char* limitName, bool oneShot) {
    const auto limit = static_cast<unsigned>(floods.limit(limitName));
    const auto clients = static_cast<unsigned>(floods.limit("connections"));
    // One-shot requests wait for room upstream. Of streams, one client may have its equal part of one half of the limit, and half
    // of the other half.
    const unsigned most = oneShot ? limit : limit / 2 / clients + limit / 4;
    const unsigned more = limit + 100 - most;
    const double before = floods.counter("requestsRefused");
    const auto client = floods.client();
    // Popups are slow now; the witness asks for displays.
    for (unsigned i = 0; i < limit + 100; ++i) client->ask("retrieve", "/popups", oneShot, R"({"display":"Driver_Display"})");
    client->serveUntil([&] { return refused(*client) >= more; }, milliseconds{5000});
    floods.report().atMost(std::string{"beyond "} + limitName + " not refused", std::abs(double(refused(*client)) - more), 0);
    floods.report().atMost("not counted", std::abs(floods.counter("requestsRefused") - before - more), 0);
    floods.witness();
    // Another client still has its share.
    const auto another = floods.client();
    for (unsigned i = 0; i < 20; ++i) another->ask("retrieve", "/popups", oneShot, R"({"display":"Driver_Display"})");
    another->serveUntil([&] { return refused(*another) > 0; }, milliseconds{100});
    floods.report().atMost("another refused", refused(*another), 0);
    another->close();
    // Cancelling gives a client no room by itself: the room is free when the request has been given up.
    for (const auto& [id, asked] : std::unordered_map{client->all()}) {
        if (!asked.isOver()) client->cancel(id);
    }
    const bool hasRoom =
        eventually([&] { return floods.status().at("published").at(0).at("openRequests") == 1; }, milliseconds{5000});
    floods.report().atMost("left after cancelling", hasRoom ? 0 : 1, 0);
    floods.witness();
}

// Three clients constantly have as many requests in flight as allowed, to the same slow service that the other client asks.
// Together these are more than one connection to that service can carry.
void steadyLoad(Floods& floods) {
    const auto limit = static_cast<unsigned>(floods.limit("oneShotRequests"));
    const std::array clients{floods.client(), floods.client(), floods.client()};
    unsigned answered = 0;
    unsigned failed = 0;
    for (const auto& client : clients) {
        client->keepsAnswers = false;
        client->onAnswer = [&](std::uint64_t, const Asked& asked) { ++(asked.status == 200 ? answered : failed); };
    }
    const auto end = Clock::now() + milliseconds{25 * floods.scale()};
    while (Clock::now() < end) {
        for (const auto& client : clients) {
            while (client->open() < limit) client->ask("retrieve", "/displays");
            client->serveUntil([] { return false; }, milliseconds{0});
            client->forgetEnded();
        }
        floods.witness();
    }
    floods.report().fact("answered under load", answered);
    floods.report().atMost("refused under load", failed, 0);
}

void opensAndCloses(Floods& floods) {
    const unsigned times = 100 * floods.scale();
    for (unsigned i = 0; i < times; ++i) {
        const RawPeer peer{connectTo(floods.stage().socket("/hmx"))};
        if (i % 3 == 0) ::send(peer.fd(), "abc", 3, MSG_NOSIGNAL);
        if (i % 100 == 0) floods.witness();
    }
    const bool settled = eventually([&] { return floods.counter("connectionsOpen") == 1; });
    floods.report().fact("opens and closes", times);
    floods.report().atMost("connections left", settled ? 0 : 1, 0);
}

void cancels(Floods& floods) {
    const unsigned times = 500 * floods.scale();
    const double before = floods.counter("lateFrames") + floods.counter("cancelled");
    const auto client = floods.client();
    for (unsigned i = 0; i < times; ++i) {
        const auto id = client->ask("retrieve", "/popups", i % 2 == 0, R"({"display":"Driver_Display"})");
        client->cancel(id);
        client->send(answerFrame(campaign::cancel, 0, id + 1'000'000, 0, {}));
        if (i % 500 == 0) floods.witness();
        if (i % 2000 == 0) client->serveUntil([] { return false; }, milliseconds{1});
    }
    // A request that was refused is already over when its cancellation comes, which then counts as late. Each of the two counts
    // once.
    const bool counted =
        eventually([&] { return floods.counter("lateFrames") + floods.counter("cancelled") - before >= 2.0 * times; });
    floods.report().fact("cancels", 2 * times);
    floods.report().atMost("cancels not counted", counted ? 0 : 1, 0);
    floods.witness();
}

void connections(Floods& floods) {
    constexpr unsigned more = 50;
    const auto limit = static_cast<unsigned>(floods.limit("connections"));
    const double before = floods.counter("peersRefused");
    std::vector<std::unique_ptr<RawPeer>> peers;
    const Bytes hello = testing_support::helloFrame("/hmx");
    for (unsigned i = 0; i < limit - 1 + more; ++i) {
        peers.push_back(std::make_unique<RawPeer>(connectTo(floods.stage().socket("/hmx"))));
        peers.back()->send(hello);
        // A client in the reserve that has not been answered yet gives way to the next one, so the reserve does not fill.
        peers.back()->receive();
    }
    // Of those beyond the limit, only the last few remain, in the reserve.
    const auto reserve = static_cast<unsigned>(floods.limit("reservedConnections"));
    const bool ended = eventually([&] { return floods.counter("peersRefused") - before >= more - reserve; }, milliseconds{5000});
    floods.report().atMost("too few ended", ended ? 0 : 1, 0);
    floods.report().atMost("ended too often", floods.counter("peersRefused") - before - (more - reserve), 0);
    const Asked told = Client{floods.stage().socket("/hmx")}.call("retrieve", "/$platform/status");
    floods.report().atMost("status not told", told.status == 200 ? 0 : 1, 0);
    floods.witness();
    peers.clear();
    const bool again = eventually([&] {
        RawPeer peer{connectTo(floods.stage().socket("/hmx"))};
        return peer.send(hello) && peer.receive(1000).has_value();
    });
    floods.report().atMost("not accepted afterwards", again ? 0 : 1, 0);
}

void halfOpen(Floods& floods) {
    constexpr unsigned count = 200;
    const double patience = floods.limit("handshakeMilliseconds");
    const double before = floods.counter("peersRefused");
    const auto since = Clock::now();
    std::vector<std::unique_ptr<RawPeer>> peers;
    const Bytes hello = testing_support::helloFrame("/hmx");
    for (unsigned i = 0; i < count; ++i) {
        peers.push_back(std::make_unique<RawPeer>(connectTo(floods.stage().socket("/hmx"))));
        peers.back()->send(Bytes(hello.begin(), hello.begin() + i % 20));
    }
    while (millisecondsSince(since) < patience - 500) {
        floods.witness();
        std::this_thread::sleep_for(milliseconds{20});
    }
    const double early = floods.counter("peersRefused") - before;
    unsigned cut = 0;
    for (auto& peer : peers) cut += peer->seesEnd() ? 1 : 0;
    floods.report().fact("half-open", count);
    floods.report().atMost("ended before their time", early, 0);
    floods.report().atMost("not ended", count - cut, 0);
    floods.report().atMost("ended after", millisecondsSince(since) - patience, 1000, "ms too late");
    floods.report().atMost("not counted", std::abs(floods.counter("peersRefused") - before - count), 0);
}

}  // namespace

void driveFlood(const Scope& scope, Random& /*random*/, Report& report) {
    Stage stage{scope};
    const auto sim = stage.startSim();
    const auto bridge = stage.startBridge();
    stage.awaitServing();
    Floods floods{stage, report, scope.times(200, 10)};
    const std::size_t descriptors = bridge->descriptors();
    stage.connect("/hmxsim")->call("update", "/faults/popupmanager", R"({"silence":true})");
    requestsInFlight(floods, "oneShotRequests", true);
    requestsInFlight(floods, "openStreams", false);
    cancels(floods);
    stage.connect("/hmxsim")->call("delete", "/faults/popupmanager");
    stage.connect("/hmxsim")->call("update", "/faults/displaymanager", R"({"delay_ms":20})");
    steadyLoad(floods);
    stage.connect("/hmxsim")->call("delete", "/faults/displaymanager");
    opensAndCloses(floods);
    connections(floods);
    halfOpen(floods);
    floods.tell();
    const bool same = eventually([&] { return bridge->descriptors() <= descriptors; });
    report.atMost("descriptors left", same ? 0 : 1, 0);
}

}  // namespace campaign
