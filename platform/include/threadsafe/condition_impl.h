// The operating system's condition variable on the steady clock, with error numbers instead of exceptions.
#pragma once

#include <pthread.h>

#include "threadsafe/mutex_impl.h"

namespace threadsafe {

// Thread: any.
class ConditionImpl {
public:
    ConditionImpl() noexcept;
    ~ConditionImpl();
    ConditionImpl(const ConditionImpl&) = delete;
    ConditionImpl& operator=(const ConditionImpl&) = delete;

    // Each returns the system's error number, 0 on success. `wait`: the caller holds `mutex`; wake-ups may be spurious.
    int wait(MutexImpl& mutex) noexcept;
    int signalOne() noexcept;
    int signalAll() noexcept;

private:
    pthread_cond_t condition_;
};

}  // namespace threadsafe
