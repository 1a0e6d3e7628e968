// The framework's own error category and what its codes mean to a client.
#pragma once

#include <cstdint>

#include "kelo/std/error_storage.h"

namespace kelo::errors {

// The category "kelo::errors::Error".
extern const std::ErrorCategory Error;

// The codes of the category that this system raises.
enum Code : int {
    nullPointer = 5,         // a pointer that must be set is null; text "std::shared_ptr"
    alreadyTerminated = 7,   // an event for a request that has had its terminal one
    cannotDeserialize = 11,  // a document is not of the type named
    cannotSerialize = 13,    // a value cannot be written
    noSuchResource = 14,     // no operation for this command and path
    badRequest = 15,         // parameters, body or id unreadable
    unknownMimeType = 16,    // no serialiser for the mime type named
    unknownElement = 17,     // no element with this id; text "UNKNOWN"
    readFailure = 18,        // a document is malformed; the text says where
    writeFailure = 19,       // a writer was used out of turn or ran into a limit
};

// The response status that tells a client of a framework error: 14 and 17 give 404, 15 gives 400, every other 500.
[[nodiscard]] std::uint16_t error2StatusCode(int code) noexcept;

}  // namespace kelo::errors
