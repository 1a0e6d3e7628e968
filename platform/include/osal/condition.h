// A condition that is bound to one mutex, on first use.
#pragma once

#include <cstdint>

#include "osal/mutex.h"
#include "threadsafe/condition_impl.h"

namespace osal {

// Thread: any; `bind`, `wait` and the signals with the mutex held.
class Condition {
public:
    // Binds to `mutex`, or does nothing if that is bound already. Bound to another one: records osal::SysError
    // `inconsistentCondition` with "Using Condition with different Mutexes". True on failure.
    bool bind(Mutex& mutex) noexcept;
    bool isBound() const noexcept { return mutex_ != nullptr; }

    // Waits until there has been a signal, which another waiter may have been meant by; never returns without one. Records
    // osal::SysError `inconsistentCondition` when unbound or when the system refuses. True on failure.
    bool wait() noexcept;
    // Wakes one waiter. Records osal::SysError `inconsistentCondition` for a condition that is not valid, `otherFailure` else.
    bool signal() noexcept;

private:
    Mutex* mutex_ = nullptr;
    threadsafe::ConditionImpl impl_;
    std::uint64_t signals_ = 0;  // so far, guarded by the mutex
};

}  // namespace osal
