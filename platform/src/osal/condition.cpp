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
    const int result = impl_.wait(mutex_->impl());
    return result != 0 && failWith(inconsistentCondition, result);
}

bool Condition::signal() noexcept {
    const int result = impl_.signalOne();
    return result != 0 && failWith(result == EINVAL ? inconsistentCondition : otherFailure, result);
}

}  // namespace osal
