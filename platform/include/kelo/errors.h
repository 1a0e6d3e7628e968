// The framework's own error category, and the response status for each code.
#pragma once

#include <cstdint>

#include "kelo/std/error_storage.h"

namespace kelo::errors {

// The category "kelo::errors::Error".
extern const std::ErrorCategory Error;

// The codes of the category that this system raises.
enum Code : int {
    nullPointer = 5,         // a pointer that must be set is null; text "std::shared_ptr"
    alreadyTerminated = 7,   // an event for a request that has already ended
    cannotDeserialize = 11,  // a document is not of the type that its content type names
    cannotSerialize = 13,    // a value cannot be written
    noSuchResource = 14,     // no operation for this command and path
    badRequest = 15,         // parameters, body or id cannot be read
    unknownMimeType = 16,    // no serialiser for the mime type
    unknownElement = 17,     // no element with this id; text "UNKNOWN"
    readFailure = 18,        // a document is malformed; the text says where
    writeFailure = 19,       // a writer was called in the wrong order or reached a limit
};

// The response status for a framework error: 404 for 14 and 17, 400 for 15, otherwise 500.
[[nodiscard]] std::uint16_t error2StatusCode(int code) noexcept;

}  // namespace kelo::errors
