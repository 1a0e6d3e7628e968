#include "kelo/serializer/failure.h"

#include <cstdio>

#include "kelo/errors.h"

namespace kelo::serializer {
namespace {

bool record(int code, std::string_view text) noexcept {
    std::ErrorOutput{errors::Error, code, text};
    return true;
}

}  // namespace

bool readFailed(std::string_view what, std::size_t offset) noexcept {
    char text[200];
    std::snprintf(text, sizeof text, "%.*s at byte %zu", static_cast<int>(what.size()), what.data(), offset);
    return record(errors::readFailure, text);
}

bool readMismatch(std::string_view expected, std::string_view found, std::size_t offset) noexcept {
    char text[160];
    std::snprintf(text, sizeof text, "expected %.*s, found %.*s", static_cast<int>(expected.size()), expected.data(),
                  static_cast<int>(found.size()), found.data());
    return readFailed(text, offset);
}

bool writeFailed(std::string_view what) noexcept {
    return record(errors::writeFailure, what);
}

std::string_view nameOf(util::serializer::ValueType type) noexcept {
    using util::serializer::ValueType;
    switch (type) {
        case ValueType::null:
            return "null";
        case ValueType::boolean:
            return "true or false";
        case ValueType::integer:
            return "an integer";
        case ValueType::floating:
            return "a number with a fraction or exponent";
        case ValueType::string:
            return "a string";
        case ValueType::object:
            return "an object";
        case ValueType::array:
            return "an array";
        case ValueType::invalid:
            break;
    }
    return {};
}

}  // namespace kelo::serializer
