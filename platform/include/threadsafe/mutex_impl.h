// The operating system's mutex, as a resource, with error numbers instead of exceptions.
#pragma once

#include <pthread.h>

namespace threadsafe {

// Thread: any. Neither copied nor moved, because waiters use its address.
class MutexImpl {
public:
    MutexImpl() noexcept;  // error-checking, non-recursive
    ~MutexImpl();
    MutexImpl(const MutexImpl&) = delete;
    MutexImpl& operator=(const MutexImpl&) = delete;

    // Each returns the system's error number, 0 on success: EDEADLK if the calling thread already holds it, EPERM on unlocking a
    // mutex that another thread holds.
    int lock() noexcept;
    int unlock() noexcept;
    pthread_mutex_t* native() noexcept { return &mutex_; }

private:
    pthread_mutex_t mutex_;
};

}  // namespace threadsafe
