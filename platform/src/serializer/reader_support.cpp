#include "serializer/reader_support.h"

#include <bit>
#include <cstdio>

#include "kelo/errors.h"
#include "serializer/writer_nesting.h"

namespace kelo::serializer {

bool readFailed(std::string_view what, std::size_t offset) noexcept {
    char text[160];
    std::snprintf(text, sizeof text, "%.*s at byte %zu", static_cast<int>(what.size()), what.data(), offset);
    std::ErrorOutput{errors::Error, errors::readFailure, text};
    return true;
}

bool writeFailed(const char* what) noexcept {
    std::ErrorOutput{errors::Error, errors::writeFailure, what};
    return true;
}

bool isExact(std::int64_t value) noexcept {
    const auto magnitude = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    return isExact(magnitude);
}

bool isExact(std::uint64_t value) noexcept {
    // A double has 53 significant bits: what lies between the highest and the lowest bit set must fit.
    return value == 0 || std::bit_width(value) - std::countr_zero(value) <= 53;
}

}  // namespace kelo::serializer
