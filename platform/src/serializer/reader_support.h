// What binary and text readers share: saying what is wrong with a document, and which integers a double can hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kelo::serializer {

// Records "<what> at byte <offset>"; always true, so that a reader can return it.
bool readFailed(std::string_view what, std::size_t offset) noexcept;

// Whether a double is equal to the integer.
bool isExact(std::int64_t value) noexcept;
bool isExact(std::uint64_t value) noexcept;

}  // namespace kelo::serializer
