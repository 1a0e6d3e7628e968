#include "osal/condition.h"

#include <cerrno>
#include <cstring>

#include "osal/sys_error.h"

namespace osal {

namespace {

bool fail(SysErrorCode code, const char* text) noexcept {
    std::ErrorOutput{SysError, code, text};
    return true;
}

bool failWith(SysErrorCode code, int systemError) noexcept {
    char text[128];
    return fail(code, strerror_r(systemError, text, sizeof text));
}

}  // namespace

bool Condition::bind(Mutex& mutex) noexcept {
    if (mutex_ != nullptr && mutex_ != &mutex) return fail(inconsistentCondition, "Using Condition with different Mutexes");
    mutex_ = &mutex;
    return false;
}

bool Condition::wait() noexcept {
    if (mutex_ == nullptr) return fail(inconsistentCondition, "Condition is bound to no Mutex");
    // The system's wake-ups may be spurious; a thread that waits here must not continue because of one.
    for (const std::uint64_t before = signals_; signals_ == before;) {
        if (const int result = impl_.wait(mutex_->impl()); result != 0) return failWith(inconsistentCondition, result);
    }
    return false;
}

bool Condition::signal() noexcept {
    ++signals_;
    const int result = impl_.signalOne();
    return result != 0 && failWith(result == EINVAL ? inconsistentCondition : otherFailure, result);
}

}  // namespace osal
