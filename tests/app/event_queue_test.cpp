#include "event_queue.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

namespace {

using hmx::EEventID;

TEST(EventQueue, EventsInFrontOfTheOneThatIsWaitedForAreLost) {
    hmx::CEventQueue<EEventID> queue;
    for (const EEventID id : {hmx::EVENT_INPUT_AVAILABLE, hmx::EVENT_DM_AVAILABLE, hmx::EVENT_DM_AVAILABLE})
        queue.post({.id = id});
    queue.waitFor(hmx::EVENT_DM_AVAILABLE);
    EXPECT_EQ(queue.count(), 0U);
    // 13 went with the first wait: only another one ends this.
    std::thread waiter{[&] { queue.waitFor(hmx::EVENT_INPUT_AVAILABLE); }};
    queue.post({.id = hmx::EVENT_INPUT_AVAILABLE});
    waiter.join();
    EXPECT_EQ(queue.count(), 0U);
}

TEST(EventQueue, SeveralPostersWakeTheOneWaiterWhoTakesOneOfEachEvent) {
    constexpr int rounds = 500;
    constexpr EEventID ids[] = {hmx::EVENT_DM_AVAILABLE, hmx::EVENT_INPUT_AVAILABLE, hmx::EVENT_POPUP_AVAILABLE};
    hmx::CEventQueue<EEventID> queue;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::thread> threads;
        for (const EEventID id : {ids[0], ids[0], ids[0]}) {
            threads.emplace_back([&queue, id] { queue.post({.id = id, .text = "text that is on the heap for sure"}); });
        }
        queue.waitFor(ids[0]);
        for (auto& thread : threads) thread.join();
        for (const EEventID id : ids) queue.post({.id = id});
        EXPECT_EQ(queue.count(), 3U) << "a repetition is not kept";
        queue.waitFor(ids[2]);
        EXPECT_EQ(queue.count(), 0U);
    }
}

// Mutex and condition of which each call fails as often as the test says; true is a failure.
int failures = 0;

struct FailingMutex {
    static bool fails() { return failures > 0 && failures-- > 0; }
    bool lock() { return fails(); }
    bool unlock() { return fails(); }
};
struct FailingCondition {
    bool bind(FailingMutex&) {
        const bool failed = FailingMutex::fails();
        bound = bound || !failed;
        return failed;
    }
    bool isBound() const { return bound; }
    bool wait() {
        if (onWait) onWait();
        return FailingMutex::fails();
    }
    bool signal() { return FailingMutex::fails(); }

    bool bound = false;
    static inline std::function<void()> onWait;
};

TEST(EventQueue, SurvivesEveryFailure) {
    for (int count = 0; count < 12; ++count) {
        hmx::CEventQueue<EEventID, FailingMutex, FailingCondition> queue;
        failures = count;
        FailingCondition::onWait = [&] {
            if (failures <= 2) queue.post({.id = hmx::EVENT_DM_AVAILABLE});
        };
        queue.waitFor(hmx::EVENT_DM_AVAILABLE);
        EXPECT_EQ(queue.count(), 0U);
    }
}

}  // namespace
