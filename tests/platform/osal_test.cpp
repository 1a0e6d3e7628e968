#include "osal/osal.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "osal/condition.h"
#include "osal/mutex.h"
#include "osal/sys_error.h"

namespace {

int takeCode(const std::ErrorCategory& category) {
    const auto error = std::ErrorStorage::current();
    EXPECT_EQ(error.category, &category);
    std::ErrorStorage::ack();
    return error.code;
}

TEST(OsalTest, APeersDeathIsAnErrorCodeAndDescriptorsAreNotScarce) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit low = before;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    const osal::Osal osal{true, true};
    rlimit after{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
    EXPECT_EQ(after.rlim_cur, before.rlim_max);

    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);

    sigset_t blocked;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &blocked), 0);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    EXPECT_EQ(sigismember(&blocked, SIGINT), 1);
    EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(ConditionTest, IsBoundToOneMutex) {
    osal::Condition condition;
    osal::Mutex mutex;
    osal::Mutex other;
    EXPECT_FALSE(condition.bind(mutex));
    EXPECT_FALSE(condition.bind(mutex));
    EXPECT_TRUE(condition.bind(other));
    EXPECT_EQ(std::ErrorStorage::reason(), "Using Condition with different Mutexes");
    EXPECT_EQ(takeCode(osal::SysError), osal::inconsistentCondition);
}

TEST(ConditionTest, SignalWakesTheWaiter) {
    osal::Mutex mutex;
    osal::Condition condition;
    ASSERT_FALSE(condition.bind(mutex));
    int turn = 0;
    const auto play = [&](int mine) {
        ASSERT_FALSE(mutex.lock());
        for (int i = 0; i < 100; ++i) {
            while (turn % 2 != mine) ASSERT_FALSE(condition.wait());
            ++turn;
            ASSERT_FALSE(condition.signal());
        }
        ASSERT_FALSE(mutex.unlock());
    };
    std::thread other{play, 1};
    play(0);
    other.join();
    EXPECT_EQ(turn, 200);
}

}  // namespace
