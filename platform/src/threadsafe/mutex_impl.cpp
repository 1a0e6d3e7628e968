#include "threadsafe/mutex_impl.h"

namespace threadsafe {

MutexImpl::MutexImpl() noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

MutexImpl::~MutexImpl() {
    pthread_mutex_destroy(&mutex_);
}

int MutexImpl::lock() noexcept {
    return pthread_mutex_lock(&mutex_);
}

int MutexImpl::unlock() noexcept {
    return pthread_mutex_unlock(&mutex_);
}

}  // namespace threadsafe
