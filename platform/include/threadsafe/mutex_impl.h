// The operating system's mutex, as a resource with errors instead of exceptions.
#pragma once

#include <pthread.h>

namespace threadsafe {

// Thread: any. Not copied, not moved: waiters hold its address.
class MutexImpl {
public:
    MutexImpl() noexcept;  // error-checking, non-recursive
    ~MutexImpl();
    MutexImpl(const MutexImpl&) = delete;
    MutexImpl& operator=(const MutexImpl&) = delete;

    // The system's error number, 0 for success: EDEADLK when the calling thread has it already, EPERM when unlocking another's.
    int lock() noexcept;
    int unlock() noexcept;
    pthread_mutex_t* native() noexcept { return &mutex_; }

private:
    pthread_mutex_t mutex_;
};

}  // namespace threadsafe
