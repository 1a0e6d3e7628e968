// Errors of the operating-system layer.
#pragma once

#include "kelo/std/error_storage.h"

namespace osal {

// The category "osal::SysError".
extern const std::ErrorCategory SysError;

enum SysErrorCode : int { inconsistentCondition = 10, otherFailure = 19 };

}  // namespace osal
