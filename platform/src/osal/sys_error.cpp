#include "osal/sys_error.h"

namespace osal {

namespace {

const char* describe(int code) {
    switch (code) {
        case inconsistentCondition:
            return "inconsistent condition";
        case otherFailure:
            return "system failure";
        default:
            return "unknown error";
    }
}

}  // namespace

constinit const std::ErrorCategory SysError{"osal::SysError", &describe};

}  // namespace osal
