// A condition variable that is bound to one mutex when it is first used.
#pragma once

#include <cstdint>

#include "osal/mutex.h"
#include "threadsafe/condition_impl.h"

namespace osal {

// Thread: any; call `bind`, `wait` and `signal` with the mutex held.
class Condition {
public:
    // Binds to `mutex`; does nothing if it is bound to that one already. If it is bound to another one, records osal::SysError
    // `inconsistentCondition` with "Using Condition with different Mutexes". True on failure.
    bool bind(Mutex& mutex) noexcept;
    bool isBound() const noexcept { return mutex_ != nullptr; }

    // Waits for a signal, which may have been meant for another waiter; there are no spurious wake-ups. Records osal::SysError
    // `inconsistentCondition` if unbound or if the system call fails. True on failure.
    bool wait() noexcept;
    // Wakes one waiter. Records osal::SysError `inconsistentCondition` if the condition is not valid, else `otherFailure`.
    bool signal() noexcept;

private:
    Mutex* mutex_ = nullptr;
    threadsafe::ConditionImpl impl_;
    std::uint64_t signals_ = 0;  // the number so far; guarded by the mutex
};

}  // namespace osal
