// The life of an upstream request, for every bridge and operation: who ends it, when, and what is left.
#include "bridge/pending_requests.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "stage.h"

namespace {

using namespace stage;

class RequestLife : public testing::TestWithParam<Json> {
protected:
    RequestLife() {
        if (kind.contains("prepare")) {  // so that ids are known
            Downstream ignored;
            stage.ask(requestOf(kind["prepare"]), ignored);
            stage.answer(0, textOf(kind["prepare"]["answer"]));
        }
        stage.lines.take();
        index = stage.api.sent.size();
    }
    ~RequestLife() override { EXPECT_EQ(stage.api.open(), 0U) << "left behind upstream"; }

    const Json kind = GetParam();
    const std::string request = requestOf(kind);
    const std::string first = textOf(kind["answers"][0]);
    const std::string second = textOf(kind["answers"][1]);
    const std::string heardFirst = textOf(kind["heard"][0]);
    const std::string heardSecond = textOf(kind["heard"][1]);
    Downstream downstream{.oneShot = false, .finishes = false};
    Stage stage{kind["bridge"]};
    std::size_t index;  // of the request upstream
};

TEST_P(RequestLife, ASubscriptionPassesOnEveryAnswerUntilUpstreamEndsIt) {
    stage.ask(request, downstream);
    EXPECT_FALSE(stage.api.sent.at(index).request.isOneShot());
    stage.answer(index, first);
    stage.answer(index, second);
    EXPECT_EQ(downstream.take(), (Events{heardFirst, heardSecond}));
    stage.answer(index, "completed");
    EXPECT_EQ(downstream.take(), (Events{"completed", "gone"}));
    EXPECT_TRUE(stage.api.cancelled.empty());
}

TEST_P(RequestLife, AnswersThatComeOnTheWorkerNeedNoHandOver) {
    stage.ask(request, downstream);
    stage.answerOnWorker(index, first);
    downstream.finishes = true;
    stage.answerOnWorker(index, second);  // cancels from inside the event
    EXPECT_EQ(downstream.take(), (Events{heardFirst, heardSecond, "gone"}));
    EXPECT_EQ(stage.api.cancelled, std::vector{stage.api.sent.at(index).handle});
}

TEST_P(RequestLife, AOneShotRequestIsOneUpstreamTooAndOverWithItsFirstAnswer) {
    for (const bool finishes : {true, false}) {
        const std::size_t sent = stage.api.sent.size();
        downstream.oneShot = true;
        downstream.finishes = finishes;
        stage.ask(request, downstream);
        EXPECT_TRUE(stage.api.sent.at(sent).handler->isOneShot());
        stage.answer(sent, first);
        EXPECT_EQ(downstream.take(), finishes ? (Events{heardFirst, "gone"}) : (Events{heardFirst, "completed", "gone"}));
        stage.answer(sent, "completed");
    }
    EXPECT_TRUE(downstream.events.empty());
    EXPECT_TRUE(stage.api.cancelled.empty());
}

TEST_P(RequestLife, TheLineAboutAnAnswerComesBeforeThatOfAPopupAndAfterAnyOther) {
    const bool isPopup = kind["bridge"] == "popups";
    stage.ask(request, downstream);
    stage.lines.take();
    Events before;
    downstream.onValue = [&] { before = stage.lines.take(); };
    downstream.finishes = true;
    stage.answer(index, first);
    EXPECT_EQ(before.size(), isPopup ? 1U : 0U);
    EXPECT_EQ(stage.lines.take().size(), isPopup ? 0U : 1U);
}

TEST_P(RequestLife, WhenTheClientHasHadEnoughUpstreamIsCancelled) {
    stage.ask(request, downstream);
    downstream.finishes = true;
    stage.answer(index, first);
    EXPECT_EQ(downstream.take(), (Events{heardFirst, "gone"}));
    EXPECT_EQ(stage.api.cancelled, std::vector{stage.api.sent.at(index).handle});
}

TEST_P(RequestLife, CancellingBeforeOrAfterTheFirstAnswerEndsBothEndsWithoutAnEvent) {
    for (const bool answered : {false, true}) {
        const std::size_t sent = stage.api.sent.size();
        void* const key = stage.ask(request, downstream);
        if (answered) stage.answer(sent, first);
        stage.cancel(key);
        EXPECT_EQ(downstream.take(), answered ? (Events{heardFirst, "gone"}) : Events{"gone"});
        EXPECT_EQ(stage.api.cancelled.back(), stage.api.sent.at(sent).handle);
        stage.cancel(key);  // nothing is left to cancel
    }
    EXPECT_EQ(stage.api.cancelled.size(), 2U);
}

TEST_P(RequestLife, CancellationsAndAnswersMayCrossInTheQueue) {
    // The request is cancelled before its own event has run.
    void* key = stage.post(request, downstream);
    stage.cancel(key);
    EXPECT_EQ(downstream.take(), Events{"gone"});
    // First, an answer is queued for the worker before the cancellation; then one comes after it.
    key = stage.ask(request, downstream);
    auto handler = std::move(stage.api.sent.back().handler);
    const auto response = kelo::Response{200, kelo::Payload::copyOf(first, kelo::MimeType{"application/json"})};
    handler->onNext(response);
    stage.cancel(key);
    EXPECT_EQ(downstream.take(), (Events{heardFirst, "gone"}));
    handler->onNext(response);
    handler->onError(kelo::Response::createErrorResponse(503, "lost"));
    stage.worker.crank();
    EXPECT_TRUE(downstream.events.empty());
}

TEST_P(RequestLife, LosingUpstreamGivesOneTerminalEvent) {
    for (const bool answered : {false, true}) {
        const std::size_t sent = stage.api.sent.size();
        stage.ask(request, downstream);
        if (answered) stage.answer(sent, first);
        const auto handler = std::move(stage.api.sent.at(sent).handler);
        handler->onError(kelo::Response::createErrorResponse(503, "lost"));
        handler->onCompleted();
        stage.detach();
        stage.detach();
        EXPECT_EQ(downstream.take(), answered ? (Events{heardFirst, "503 lost", "gone"}) : (Events{"503 lost", "gone"}));
        stage.attach(stage.api);
    }
    EXPECT_TRUE(stage.api.cancelled.empty());
}

TEST_P(RequestLife, ARefusalFromInsideTheCallIsOneError) {
    stage.api.refuseWith = 503;
    void* const key = stage.ask(request, downstream);
    EXPECT_EQ(downstream.take(), (Events{"503 service gone, not sent", "gone"}));
    stage.cancel(key);
    EXPECT_TRUE(stage.api.cancelled.empty());
}

TEST_P(RequestLife, AHandleIsCancelledWhereItWasIssued) {
    support::FakeKeloApi other;
    void* const key = stage.ask(request, downstream);
    stage.attach(other);
    Downstream late{.oneShot = false, .finishes = false};
    void* const otherKey = stage.ask(request, late);
    EXPECT_NE(key, otherKey);
    EXPECT_EQ(other.sent.size(), 1U);
    stage.cancel(key);
    EXPECT_EQ(stage.api.cancelled, std::vector{stage.api.sent.at(index).handle});
    EXPECT_TRUE(other.cancelled.empty());
    stage.answer(other, 0, second);
    stage.cancel(otherKey);
    EXPECT_EQ(late.take(), (Events{heardSecond, "gone"}));
    EXPECT_EQ(other.cancelled, std::vector{other.sent.at(0).handle});
}

TEST_P(RequestLife, WithoutAClientElementsAreRefusedAndWholeResourcesLeftAlone) {
    stage.detach();
    stage.cancel(stage.ask(request, downstream));
    const std::string text = kind["noClient"];
    EXPECT_EQ(downstream.take(),
              kind.contains("unanswered") ? Events{"gone"} : (Events{"503 [" + text + ", request not sent]", "gone"}));
    EXPECT_EQ(stage.lines.take().back(), "4 " + text);
    EXPECT_EQ(stage.api.sent.size(), index);
}

INSTANTIATE_TEST_SUITE_P(, RequestLife, testing::ValuesIn(load("lives.json").get<std::vector<Json>>()),
                         [](const auto& kind) { return kind.param["name"].template get<std::string>(); });

TEST(PendingRequests, AThrowOnTheWayDownEndsTheRequestAtBothEnds) {
    support::FakeKeloApi api;
    using Pending = hmx::PendingRequests<int, kelo::url>;
    Pending pending;
    Downstream downstream{.oneShot = false, .finishes = false};
    const hmx::RequestKey key = hmx::newRequestKey();
    Pending::Handler<kelo::url> handler = std::make_unique<DownstreamHandler<kelo::url>>(downstream);
    pending.start(key, std::make_unique<Pending::Request>(std::move(handler), 1), &api,
                  [] { return reinterpret_cast<void*>(5); });
    const auto make = []() -> kelo::url { throw std::runtime_error{"no value"}; };
    EXPECT_THROW(pending.next<kelo::url>(key, make), std::runtime_error);
    EXPECT_EQ(downstream.take(), Events{"gone"});
    EXPECT_EQ(api.cancelled, std::vector{reinterpret_cast<void*>(5)});
    EXPECT_TRUE(pending.empty());
}

// Answers every request soon, on a thread of its own, often twice; does not answer cancelled ones.
class BusyApi final : public kelo::IKeloApi {
public:
    void* request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<kelo::Response>>&& handler,
                  kelo::RequestLimits) override {
        const std::uintptr_t handle = ++lastHandle_;
        const bool oneShot = handler->isOneShot();
        kelo::post(thread_, [this, handle, handler = std::move(handler), path = request.path(), oneShot]() mutable {
            const kelo::Response answer{200, kelo::Payload::copyOf("{}", kelo::MimeType{"application/json"})};
            bool finished = false;
            for (int i = 0; i < 2 && !finished && !isCancelled(handle); ++i) finished = handler->onNext(answer);
            if (!finished && !oneShot && handle % 2 == 0 && !isCancelled(handle)) handler->onCompleted();
        });
        return reinterpret_cast<void*>(handle);
    }
    void cancel(void* handle) override {
        const std::lock_guard lock{mutex_};
        cancelled_.insert(reinterpret_cast<std::uintptr_t>(handle));
    }

private:
    bool isCancelled(std::uintptr_t handle) {
        const std::lock_guard lock{mutex_};
        return cancelled_.contains(handle);
    }

    std::atomic<std::uintptr_t> lastHandle_ = 0;
    std::mutex mutex_;
    std::set<std::uintptr_t> cancelled_;
    comm::ActiveObject thread_{"busy-upstream"};
};

TEST(RequestLifeUnderLoad, ClientsUpstreamAndItsReturnsMayRaceAndEveryRequestStillEndsOnce) {
    constexpr std::size_t clients = 3;
    constexpr std::size_t each = 300;
    std::vector<Downstream> requests(clients * each);
    {
        const support::TracedLines quiet{""};
        auto api = std::make_unique<BusyApi>();
        const auto worker = std::make_shared<comm::ActiveObject>("test.displaythread");
        hmx::DisplayBridge bridge{worker};
        const auto attach = [&] { bridge.setApi({.info = {}, .api = api.get()}); };
        kelo::post(*worker, attach);
        std::vector<std::thread> threads;
        for (std::size_t client = 0; client < clients; ++client) {
            threads.emplace_back([&, client] {
                for (std::size_t i = 0; i < each; ++i) {
                    Downstream& downstream = requests[client * each + i];
                    downstream.oneShot = downstream.finishes = i % 3 == 0;
                    void* const key = bridge.retrieveDisplayObjects(
                        std::make_unique<DownstreamHandler<kelo::hmx::DisplayObjectListPage>>(downstream), {});
                    if (i % 100 == 50) kelo::post(*worker, [&] { bridge.resetApi(); });
                    if (i % 100 == 60) kelo::post(*worker, attach);
                    if (i % 2 == 0) std::this_thread::yield();
                    bridge.cancelRequest(key);
                }
            });
        }
        for (auto& thread : threads) thread.join();
        const auto drain = [&] {
            std::promise<void> promise;
            const std::future<void> idle = promise.get_future();
            kelo::post(*worker, [promise = std::move(promise)]() mutable { promise.set_value(); });
            idle.wait();
        };
        drain();      // the cancellations
        api.reset();  // its last answers, for which nobody waits
        drain();
    }
    for (const Downstream& downstream : requests) {
        EXPECT_EQ(std::count(downstream.events.begin(), downstream.events.end(), "gone"), 1);
        EXPECT_EQ(downstream.events.back(), "gone");
        EXPECT_LE(std::count(downstream.events.begin(), downstream.events.end(), "completed"), 1);
    }
}

}  // namespace
