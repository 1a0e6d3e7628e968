#include "kelo/errors.h"

namespace kelo::errors {

namespace {

const char* describe(int code) {
    switch (code) {
        case nullPointer:
            return "null pointer";
        case alreadyTerminated:
            return "already terminated";
        case cannotDeserialize:
            return "cannot deserialize";
        case cannotSerialize:
            return "cannot serialize";
        case noSuchResource:
            return "no such resource";
        case badRequest:
            return "bad request";
        case unknownMimeType:
            return "unknown mime type";
        case unknownElement:
            return "unknown element";
        case readFailure:
            return "malformed document";
        case writeFailure:
            return "cannot write";
        default:
            return "unknown error";
    }
}

}  // namespace

constinit const std::ErrorCategory Error{"kelo::errors::Error", &describe};

std::uint16_t error2StatusCode(int code) noexcept {
    switch (code) {
        case noSuchResource:
        case unknownElement:
            return 404;
        case badRequest:
            return 400;
        default:
            return 500;
    }
}

}  // namespace kelo::errors
