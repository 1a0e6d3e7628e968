// An active-object event that calls a function.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "comm/active_object.h"
#include "util/block_pool.h"

namespace kelo {

// Owns the callable, which may be move-only. Thread: created on any, executed on the worker.
template <class F>
class FuncCallEvent final : public comm::ActiveObjectEvent {
public:
    explicit FuncCallEvent(F function) : function_{std::move(function)} {}
    void execute() override { function_(); }

private:
    F function_;
};

// Makes event and callable in one allocation, from the pool.
template <class F>
[[nodiscard]] auto makeEvent(F&& function) {
    using Event = FuncCallEvent<std::decay_t<F>>;
    return std::allocate_shared<Event>(util::PoolAllocator<Event>{}, std::forward<F>(function));
}

// Queues `function` on the worker.
template <class F>
void post(comm::ActiveObject& worker, F&& function) {
    worker.enque(makeEvent(std::forward<F>(function)));
}

// The same for a short function that does not block, as the handling of a request needs it: see comm::ActiveObject::enqueBrief().
template <class F>
void postBrief(comm::ActiveObject& worker, F&& function) {
    worker.enqueBrief(makeEvent(std::forward<F>(function)));
}

// Queues `function` on the worker after the delay. Thread: the worker.
template <class F>
void postAfter(comm::ActiveObject& worker, std::chrono::milliseconds delay, F&& function) {
    worker.enqueAfter(delay, makeEvent(std::forward<F>(function)));
}

}  // namespace kelo
