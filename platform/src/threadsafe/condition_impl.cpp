#include "threadsafe/condition_impl.h"

#include <ctime>

namespace threadsafe {

ConditionImpl::ConditionImpl() noexcept {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

ConditionImpl::~ConditionImpl() {
    pthread_cond_destroy(&condition_);
}

int ConditionImpl::wait(MutexImpl& mutex) noexcept {
    return pthread_cond_wait(&condition_, mutex.native());
}

int ConditionImpl::signalOne() noexcept {
    return pthread_cond_signal(&condition_);
}

int ConditionImpl::signalAll() noexcept {
    return pthread_cond_broadcast(&condition_);
}

}  // namespace threadsafe
