// A request's objects are created on one thread and destroyed on another, up to thirty-two of each in a burst. That is the worst
// case for a heap with a cache per thread: in every burst one cache runs empty and the other overflows, and both go to the shared
// heap. Here, what one side has too much of is what the other side lacks: sixteen blocks at a time pass through the store, with
// one lock for all of them. In between, taking or returning a block is a few instructions.
//
// A thread has up to two batches of a size: one that it takes from and returns to, and a second, full one. So a thread that
// alternates between taking and returning at the edge of a batch does not go to the store each time.
//
// A thread that ends returns its blocks to the heap. So do destructors that run after that.
#include "util/block_pool.h"

#include <mutex>
#include <utility>

namespace util {

constinit thread_local std::array<BlockPool::FreeList, BlockPool::sizes> BlockPool::lists_;

// The batches of one size that no thread has at hand.
class BlockPool::Store {
public:
    static Store& of(std::size_t index) noexcept {
        static constinit std::array<Store, sizes> all;
        return all[index];
    }

    // Null if there is none.
    Block* take() noexcept {
        const std::lock_guard lock{mutex_};
        return count_ == 0 ? nullptr : batches_[--count_];
    }
    // False if there is no room.
    bool give(Block* first) noexcept {
        const std::lock_guard lock{mutex_};
        if (count_ == batches_.size()) return false;
        batches_[count_++] = first;
        return true;
    }

private:
    std::mutex mutex_;
    std::array<Block*, mostBatches> batches_{};
    std::size_t count_ = 0;
};

namespace {

enum class Use : std::uint8_t { not_yet, running, over };
constinit thread_local Use use = Use::not_yet;

template <class Block>
void leaveToHeap(Block* first) noexcept {
    while (first != nullptr) ::operator delete(std::exchange(first, first->next));
}

}  // namespace

struct BlockPool::ThreadExit {
    ~ThreadExit() {
        use = Use::over;
        for (FreeList& list : lists_) {
            leaveToHeap(list.first);
            leaveToHeap(list.full);
            list = FreeList{};
        }
    }
};

// Whether the thread may keep blocks. The first call makes its lists ready.
bool BlockPool::begin() {
    if (use == Use::not_yet) {
        static thread_local const ThreadExit atExit;
        for (FreeList& list : lists_) list.count = 0;
        use = Use::running;
    }
    return use == Use::running;
}

void* BlockPool::refill(std::size_t index) {
    if (begin()) {
        FreeList& list = lists_[index];
        Block* first = std::exchange(list.full, nullptr);
        if (first == nullptr) first = Store::of(index).take();
        if (first != nullptr) {
            list.first = first->next;
            list.count = batch - 1;
            return first;
        }
    }
    return ::operator new((index + 1) * step);
}

void BlockPool::release(void* block, std::size_t index) noexcept {
    if (!begin()) {
        ::operator delete(block);
        return;
    }
    FreeList& list = lists_[index];
    if (list.count == batch) {
        if (list.full != nullptr && !Store::of(index).give(list.full)) leaveToHeap(list.full);
        list.full = std::exchange(list.first, nullptr);
        list.count = 0;
    }
    list.first = ::new (block) Block{list.first};
    ++list.count;
}

}  // namespace util
