// A mutex that reports failures instead of throwing.
#pragma once

#include "kelo/std/error_storage.h"
#include "threadsafe/mutex_impl.h"

namespace osal {

// Thread: any. Non-recursive.
class Mutex {
public:
    // The category "osal::Mutex::Error".
    static const std::ErrorCategory Error;
    enum Code : int { lockFailed = 1, unlockFailed = 2, inconsistent = 3 };

    // True on failure, which is recorded: `inconsistent` if the mutex is not valid or its owner died while holding it, else
    // `lockFailed` or `unlockFailed`.
    bool lock() noexcept;
    bool unlock() noexcept;

    threadsafe::MutexImpl& impl() noexcept { return impl_; }

private:
    threadsafe::MutexImpl impl_;
};

}  // namespace osal
