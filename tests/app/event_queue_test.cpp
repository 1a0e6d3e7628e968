#include "event_queue.h"

#include <gtest/gtest.h>

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
    // The first wait has discarded this event, so only another one ends this wait.
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

}  // namespace
