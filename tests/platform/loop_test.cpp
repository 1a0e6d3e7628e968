// Workers and their loops: order, draining, timers, and the wake-ups that must not be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"
#include "net/loop.h"
#include "support/eventually.h"

namespace {

using testing_support::Watched;

TEST(ActiveObject, RunsInOrderOfPostingAndNeverInsideThePost) {
    comm::ActiveObject worker{"test", comm::ActiveObject::ByHand{}};
    std::vector<int> order;
    kelo::post(worker, [&] {
        order.push_back(1);
        kelo::post(worker, [&] { order.push_back(3); });
        order.push_back(2);
        EXPECT_TRUE(worker.isCurrentThread());
    });
    EXPECT_TRUE(order.empty());
    EXPECT_FALSE(worker.isCurrentThread());
    EXPECT_EQ(worker.runPending(), 2U);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(ActiveObject, TheSameEventMayBeQueuedTwice) {
    comm::ActiveObject worker{"test", comm::ActiveObject::ByHand{}};
    int runs = 0;
    const auto count = [&runs] { ++runs; };
    const auto event = std::make_shared<kelo::FuncCallEvent<decltype(count)>>(count);
    worker.enque(event);
    worker.enque(event);
    worker.enque(nullptr);
    worker.runPending();
    EXPECT_EQ(runs, 2);
}

TEST(ActiveObject, StoppingDrainsAlsoWhatTheDrainPosts) {
    std::atomic<int> runs{0};
    {
        comm::ActiveObject worker{"hmxtolubridge.testthread"};
        kelo::post(worker, [&] {
            ++runs;
            kelo::post(worker, [&] {
                ++runs;
                kelo::post(worker, [&] { ++runs; });
            });
        });
    }
    EXPECT_EQ(runs, 3);
}

TEST(ActiveObject, AnExceptionEndsItsEventAlone) {
    comm::ActiveObject worker{"test", comm::ActiveObject::ByHand{}};
    bool after = false;
    kelo::post(worker, [] { throw std::runtime_error{"broken"}; });
    kelo::post(worker, [] { throw 1; });
    kelo::post(worker, [&] { after = true; });
    worker.runPending();
    EXPECT_TRUE(after);
}

TEST(ActiveObject, NoPostIsLostAndEachPosterKeepsItsOrder) {
    constexpr int posters = 4;
    constexpr int posts = 20'000;
    std::vector<int> last(posters, -1);
    bool ordered = true;
    {
        comm::ActiveObject worker{"test"};
        std::vector<std::thread> threads;
        for (int poster = 0; poster < posters; ++poster) {
            threads.emplace_back([&, poster] {
                for (int i = 0; i < posts; ++i) {
                    kelo::post(worker, [&, poster, i] {
                        auto& previous = last[static_cast<std::size_t>(poster)];
                        ordered = ordered && previous == i - 1;
                        previous = i;
                    });
                    // Now and then the worker gets the time to fall asleep, which is when a wake-up could be lost.
                    if (i % 1000 == 0) std::this_thread::yield();
                }
            });
        }
        for (auto& thread : threads) thread.join();
    }
    EXPECT_TRUE(ordered);
    EXPECT_EQ(last, std::vector<int>(posters, posts - 1));
}

TEST(Loop, TimersFireOnceInTimeAndMayChangeOneAnother) {
    comm::ActiveObject worker{"test"};
    Watched<std::vector<int>> fired;
    std::unique_ptr<kelo::net::Timer> first;
    std::unique_ptr<kelo::net::Timer> second;
    std::unique_ptr<kelo::net::Timer> never;
    const auto begin = kelo::net::Clock::now();
    kelo::post(worker, [&] {
        auto& loop = worker.loop();
        second = std::make_unique<kelo::net::Timer>(loop, [&] { fired.change([](auto& all) { all.push_back(2); }); });
        never = std::make_unique<kelo::net::Timer>(loop, [&] { fired.change([](auto& all) { all.push_back(3); }); });
        first = std::make_unique<kelo::net::Timer>(loop, [&] {
            never.reset();
            second->arm(begin + std::chrono::milliseconds{40});
            fired.change([](auto& all) { all.push_back(1); });
        });
        first->arm(begin + std::chrono::milliseconds{20});
        never->arm(begin + std::chrono::milliseconds{30});
    });
    EXPECT_TRUE(fired.waitFor([](const auto& all) { return all.size() == 2; }));
    EXPECT_GE(kelo::net::Clock::now() - begin, std::chrono::milliseconds{40});
    EXPECT_EQ(fired.get(), (std::vector<int>{1, 2}));
    // Timers belong to the worker's thread, also in their end.
    Watched<bool> gone;
    kelo::post(worker, [&] {
        first.reset();
        second.reset();
        gone.change([](bool& value) { value = true; });
    });
    EXPECT_TRUE(gone.waitFor([](bool value) { return value; }));
}

}  // namespace
