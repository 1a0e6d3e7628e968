#include "util/block_pool.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using util::BlockPool;

struct Taken {
    unsigned char* block;
    std::size_t size;
    unsigned char mark;
};

Taken take(std::size_t size, unsigned char mark) {
    auto* const block = static_cast<unsigned char*>(BlockPool::take(size));
    std::memset(block, mark, size);
    return {block, size, mark};
}

// False if somebody else has written to the block.
bool give(const Taken& taken) {
    bool isWhole = true;
    for (std::size_t i = 0; i < taken.size; ++i) isWhole = isWhole && taken.block[i] == taken.mark;
    BlockPool::give(taken.block, taken.size);
    return isWhole;
}

TEST(BlockPool, NobodysBlockIsSomebodyElsesToo) {
    constexpr int count = 20'000;
    std::mutex mutex;
    std::condition_variable more;
    std::deque<Taken> onTheWay;
    bool damaged = false;
    // One thread creates, the other destroys, in bursts; both also use the pool for themselves.
    std::thread destroyer{[&] {
        for (int i = 0; i < count; ++i) {
            std::unique_lock lock{mutex};
            more.wait(lock, [&] { return !onTheWay.empty(); });
            const Taken taken = onTheWay.front();
            onTheWay.pop_front();
            lock.unlock();
            const Taken own = take(static_cast<std::size_t>(i % 300), 0xAA);
            damaged = !give(taken) || damaged;
            damaged = !give(own) || damaged;
        }
    }};
    for (int i = 0; i < count; ++i) {
        const Taken own = take(static_cast<std::size_t>(i % 257), 0x55);
        {
            const std::lock_guard lock{mutex};
            onTheWay.push_back(take(static_cast<std::size_t>(i % 290), static_cast<unsigned char>(i)));
        }
        if (i % 32 == 0) more.notify_one();
        ASSERT_TRUE(give(own));
    }
    more.notify_one();
    destroyer.join();
    EXPECT_FALSE(damaged);
}

// A destructor that runs as one of the last on its thread, after the pool's own.
struct Late {
    ~Late() {
        const Taken own = take(40, 0x11);
        for (const Taken& taken : held) damaged = !give(taken) || damaged;
        damaged = !give(own) || damaged;
        held.clear();
    }
    bool& damaged;
    std::vector<Taken> held;
};

TEST(BlockPool, AThreadsLastDestructorsMayTakeAndGive) {
    bool damaged = false;
    std::vector<Taken> elsewhere;
    std::thread{[&] {
        static thread_local Late late{damaged, {}};
        for (int i = 0; i < 100; ++i) late.held.push_back(take(40, 0x22));
        for (int i = 0; i < 50; ++i) {
            damaged = !give(late.held.back()) || damaged;
            late.held.pop_back();
        }
        // Others may already have some of the blocks that this thread leaves.
        std::thread{[&] {
            for (int i = 0; i < 100; ++i) elsewhere.push_back(take(40, 0x33));
        }}.join();
    }}.join();
    for (const Taken& taken : elsewhere) damaged = !give(taken) || damaged;
    EXPECT_FALSE(damaged);
}

}  // namespace
