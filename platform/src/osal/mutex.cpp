#include "osal/mutex.h"

#include <cerrno>
#include <cstring>

namespace osal {

namespace {

const char* describe(int code) {
    switch (code) {
        case Mutex::lockFailed:
            return "cannot lock";
        case Mutex::unlockFailed:
            return "cannot unlock";
        case Mutex::inconsistent:
            return "inconsistent mutex";
        default:
            return "unknown error";
    }
}

// Records what the system said; true on failure.
bool report(int systemError, Mutex::Code code) noexcept {
    if (systemError == 0) return false;
    const bool isInconsistent = systemError == EINVAL || systemError == EOWNERDEAD || systemError == ENOTRECOVERABLE;
    char text[128];
    std::ErrorOutput{Mutex::Error, isInconsistent ? Mutex::inconsistent : code, strerror_r(systemError, text, sizeof text)};
    return true;
}

}  // namespace

constinit const std::ErrorCategory Mutex::Error{"osal::Mutex::Error", &describe};

bool Mutex::lock() noexcept {
    return report(impl_.lock(), lockFailed);
}

bool Mutex::unlock() noexcept {
    return report(impl_.unlock(), unlockFailed);
}

}  // namespace osal
