// An active-object event around a callable.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "comm/active_object.h"

namespace kelo {

// Owns the callable; move-only callables are welcome. Thread: made anywhere, executed on the worker.
template <class F>
class FuncCallEvent final : public comm::ActiveObjectEvent {
public:
    explicit FuncCallEvent(F function) : function_{std::move(function)} {}
    void execute() override { function_(); }

private:
    F function_;
};

// Queues `function` on the worker: one allocation, which holds event and callable together.
template <class F>
void post(comm::ActiveObject& worker, F&& function) {
    worker.enque(std::make_shared<FuncCallEvent<std::decay_t<F>>>(std::forward<F>(function)));
}

// The same for a function that waits for nobody and does not take long, as the road of a request wants it: see
// comm::ActiveObject::enqueBrief().
template <class F>
void postBrief(comm::ActiveObject& worker, F&& function) {
    worker.enqueBrief(std::make_shared<FuncCallEvent<std::decay_t<F>>>(std::forward<F>(function)));
}

}  // namespace kelo
