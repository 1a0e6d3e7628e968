// Workers and their loops: order, draining, timers, and wake-ups that must not be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
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
                    // Sometimes the worker gets time to fall asleep, because that is when a wake-up could be lost.
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
        first = std::make_unique<kelo::net::Timer>(loop, [&] {
            never.reset();
            second->arm(begin + std::chrono::milliseconds{40});
            fired.change([](auto& all) { all.push_back(1); });
        });
        never = std::make_unique<kelo::net::Timer>(loop, [&] { fired.change([](auto& all) { all.push_back(3); }); });
        first->arm(begin + std::chrono::milliseconds{20});
        never->arm(begin + std::chrono::milliseconds{30});
    });
    EXPECT_TRUE(fired.waitFor([](const auto& all) { return all.size() == 2; }));
    EXPECT_GE(kelo::net::Clock::now() - begin, std::chrono::milliseconds{40});
    EXPECT_EQ(fired.get(), (std::vector<int>{1, 2}));
    // Timers must also be destroyed on the worker's thread.
    Watched<bool> gone;
    kelo::post(worker, [&] {
        first.reset();
        second.reset();
        gone.change([](bool& value) { value = true; });
    });
    EXPECT_TRUE(gone.waitFor([](bool value) { return value; }));
}

// A worker that lends its thread, as the runtime's does, and one that borrows it.
class Lending : public testing::Test {
protected:
    Lending() {
        run(lender_, [this] {
            lender_.loop().lendThread();
            lenderThread_ = std::this_thread::get_id();
        });
        run(borrower_, [this] { borrowerThread_ = std::this_thread::get_id(); });
    }

    // Runs the function on the worker and waits for it.
    template <class F>
    static void run(comm::ActiveObject& worker, F function) {
        const auto done = std::make_shared<std::promise<void>>();
        kelo::post(worker, [&function, done] {
            function();
            done->set_value();
        });
        done->get_future().get();
    }

    // Posts `brief` from the lender's thread until the borrower happens to be asleep, so that it runs on the lender. False if
    // that never happens.
    template <class F>
    bool runOnLender(F brief) {
        for (int attempt = 0; attempt < 1'000; ++attempt) {
            const auto ranOn = std::make_shared<std::promise<std::thread::id>>();
            kelo::post(lender_, [&, ranOn] {
                kelo::postBrief(borrower_, [&, ranOn] {
                    EXPECT_TRUE(borrower_.isCurrentThread());
                    EXPECT_FALSE(lender_.isCurrentThread());
                    const auto thread = std::this_thread::get_id();
                    if (thread == lenderThread_) brief();
                    ranOn->set_value(thread);
                });
            });
            if (ranOn->get_future().get() == lenderThread_) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
        return false;
    }

    std::thread::id lenderThread_;
    std::thread::id borrowerThread_;
    comm::ActiveObject borrower_{"borrower"};
    comm::ActiveObject lender_{"lender"};
};

TEST_F(Lending, RunsWhatIsBriefForOneThatSleepsAndWhatMayWaitNever) {
    // What a brief event posts need not be brief.
    EXPECT_TRUE(runOnLender([&] { kelo::post(borrower_, [&] { EXPECT_EQ(std::this_thread::get_id(), borrowerThread_); }); }));
    std::vector<int> order;
    run(lender_, [&] {
        kelo::postBrief(borrower_, [&] { order.push_back(1); });
        kelo::post(borrower_, [&] {
            order.push_back(2);
            EXPECT_EQ(std::this_thread::get_id(), borrowerThread_);
        });
        kelo::postBrief(borrower_, [&] { order.push_back(3); });
    });
    run(borrower_, [] {});
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(Lending, TimersArmedOnTheBorrowedThreadFireOnTheOwnOne) {
    Watched<std::thread::id> firedOn;
    std::unique_ptr<kelo::net::Timer> timer;
    run(borrower_, [&] {
        timer = std::make_unique<kelo::net::Timer>(borrower_.loop(),
                                                   [&] { firedOn.change([](auto& id) { id = std::this_thread::get_id(); }); });
    });
    const auto due = kelo::net::Clock::now() + std::chrono::milliseconds{30};
    // An early timer that is disarmed in time, then the one that counts: the alarm must follow both.
    EXPECT_TRUE(runOnLender([&] { timer->arm(due); }));
    EXPECT_TRUE(runOnLender([&] { timer->disarm(); }));
    EXPECT_TRUE(runOnLender([&] { timer->arm(due); }));
    EXPECT_TRUE(firedOn.waitFor([&](auto id) { return id != std::thread::id{}; }));
    EXPECT_GE(kelo::net::Clock::now(), due);
    EXPECT_EQ(firedOn.get(), borrowerThread_);
    run(borrower_, [&] { timer.reset(); });
}

TEST_F(Lending, WhatWasCollectedOnTheBorrowedThreadIsWrittenByTheLender) {
    struct Collected final : kelo::net::Flushable {
        void flush() override {
            by.change([](auto& id) { id = std::this_thread::get_id(); });
        }
        Watched<std::thread::id> by;
    };
    const auto collected = std::make_shared<Collected>();
    EXPECT_TRUE(runOnLender([&] { borrower_.loop().flushLater(collected); }));
    EXPECT_TRUE(collected->by.waitFor([&](auto id) { return id == lenderThread_; }));
}

TEST_F(Lending, WhatAnotherPostsToAWorkerThatIsHeldIsRunAfterwards) {
    for (const bool isWoken : {false, true}) {
        std::promise<void> held;
        std::promise<void> posted;
        std::promise<void> ran;
        std::unique_ptr<kelo::net::Timer> timer;
        // The borrower's own thread wakes up while it is held, or continues to sleep.
        run(borrower_, [&] {
            timer = std::make_unique<kelo::net::Timer>(borrower_.loop(), [] {});
            if (isWoken) timer->arm(kelo::net::Clock::now() + std::chrono::milliseconds{30});
        });
        std::thread other{[&] {
            held.get_future().get();
            if (isWoken) std::this_thread::sleep_for(std::chrono::milliseconds{60});
            kelo::post(borrower_, [&] { ran.set_value(); });
            posted.set_value();
        }};
        EXPECT_TRUE(runOnLender([&] {
            held.set_value();
            posted.get_future().get();
        }));
        EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds{10}), std::future_status::ready) << isWoken;
        other.join();
        run(borrower_, [&] { timer.reset(); });
    }
}

TEST_F(Lending, AWorkerMayEndWhileItIsHeld) {
    for (int i = 0; i < 200; ++i) {
        std::atomic<int> runs{0};
        auto worker = std::make_unique<comm::ActiveObject>("short-lived");
        if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds{200});
        run(lender_, [&] {
            kelo::postBrief(*worker, [&] { ++runs; });
            if (i % 4 < 2) worker.reset();  // on the lender's own thread, before it has run anything
        });
        worker.reset();
        EXPECT_EQ(runs, 1);
    }
}

TEST_F(Lending, NoEventIsLostDoubledOrOvertakenWhoeverRunsIt) {
    constexpr int posts = 20'000;
    constexpr int lenders = 2;
    std::vector<int> last(lenders + 1, -1);  // not synchronised: one thread at a time is the borrower's
    std::atomic<int> done{0};
    const auto event = [&](int poster, int i) {
        return [&, poster, i] {
            auto& previous = last[static_cast<std::size_t>(poster)];
            EXPECT_EQ(previous, i - 1);
            previous = i;
            ++done;
        };
    };
    comm::ActiveObject other{"other lender"};
    run(other, [&] { other.loop().lendThread(); });
    std::thread anyThread{[&] {
        for (int i = 0; i < posts; ++i) kelo::post(borrower_, event(lenders, i));
    }};
    for (int i = 0; i < posts; ++i) {
        kelo::post(lender_, [&, i] { kelo::postBrief(borrower_, event(0, i)); });
        kelo::post(other, [&, i] {
            if (i % 16 == 0) {
                kelo::post(borrower_, event(1, i));
            } else {
                kelo::postBrief(borrower_, event(1, i));
            }
        });
        // Sometimes the borrower gets time to fall asleep.
        if (i % 64 == 0) std::this_thread::sleep_for(std::chrono::microseconds{50});
    }
    anyThread.join();
    run(lender_, [] {});
    run(other, [] {});
    run(borrower_, [] {});
    EXPECT_EQ(done, posts * (lenders + 1));
}

}  // namespace
