#include "event_queue.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

namespace {

using hmx::CEvent;
using hmx::EEventID;
using Calls = std::vector<std::string>;

TEST(EventQueue, EventsInFrontOfTheOneThatIsWaitedForAreLost) {
    hmx::CEventQueue<EEventID> queue;
    for (const EEventID id : {hmx::EVENT_INPUT_AVAILABLE, hmx::EVENT_DM_AVAILABLE, hmx::EVENT_DM_AVAILABLE})
        queue.post({.id = id});
    queue.waitFor(hmx::EVENT_DM_AVAILABLE);
    EXPECT_EQ(queue.count(), 1U);
    // 13 went with the first wait: only another one ends this.
    std::thread waiter{[&] { queue.waitFor(hmx::EVENT_INPUT_AVAILABLE); }};
    queue.post({.id = hmx::EVENT_INPUT_AVAILABLE});
    waiter.join();
    EXPECT_EQ(queue.count(), 0U);
}

TEST(EventQueue, SeveralPostersWakeTheOneWaiter) {
    constexpr int posters = 4;
    constexpr int each = 500;
    hmx::CEventQueue<EEventID> queue;
    std::vector<std::thread> threads;
    for (int poster = 0; poster < posters; ++poster) {
        threads.emplace_back([&] {
            for (int i = 0; i < each; ++i)
                queue.post({.id = hmx::EVENT_POPUP_AVAILABLE, .text = "text that is on the heap for sure"});
        });
    }
    for (int i = 0; i < posters * each; ++i) queue.waitFor(hmx::EVENT_POPUP_AVAILABLE);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(queue.count(), 0U);
}

// What mutex and condition are asked, and what they answer: true is a failure.
struct Script {
    Calls calls;
    std::function<bool(const std::string&)> answer;

    bool call(const std::string& name) {
        calls.push_back(name);
        return answer && answer(name);
    }
};
Script script;

struct ScriptedMutex {
    bool lock() { return script.call("lock"); }
    bool unlock() { return script.call("unlock"); }
};
struct ScriptedCondition {
    bool bind(ScriptedMutex&) {
        const bool failed = script.call("bind");
        bound = bound || !failed;
        return failed;
    }
    bool isBound() const { return bound; }
    bool wait() { return script.call("wait"); }
    bool signal() { return script.call("signal"); }

    bool bound = false;
};

TEST(EventQueue, BindsItsConditionOnTheFirstWaitAndSurvivesEveryFailure) {
    script = {};
    hmx::CEventQueue<EEventID, ScriptedMutex, ScriptedCondition> queue;
    queue.post({.id = hmx::EVENT_DM_AVAILABLE});
    queue.waitFor(hmx::EVENT_DM_AVAILABLE);
    EXPECT_EQ(script.calls, (Calls{"lock", "unlock", "lock", "unlock"}));

    // Nothing there: the first bind fails, then the first wait, and during the second an event comes; no lock succeeds.
    int failures = 2;
    script.calls.clear();
    script.answer = [&](const std::string& name) {
        if (name == "wait" && failures == 0) queue.post({.id = hmx::EVENT_DM_AVAILABLE});
        const bool fails = (name == "bind" && failures == 2) || (name == "wait" && failures == 1);
        if (fails) --failures;
        return fails || name == "lock" || name == "signal" || name == "unlock";
    };
    queue.waitFor(hmx::EVENT_DM_AVAILABLE);
    EXPECT_EQ(script.calls, (Calls{"lock", "bind", "bind", "wait", "bind", "wait", "lock", "signal", "unlock", "unlock"}));
    EXPECT_EQ(queue.count(), 0U);
}

}  // namespace
