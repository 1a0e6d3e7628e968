// What all readers and writers share: limits of a document, and reporting what is wrong with one.
#pragma once

#include <cstddef>
#include <string_view>

#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// The depth of nested containers, for reading, skipping and writing.
inline constexpr unsigned maximumDepth = 64;
// The elements of all arrays of a document together, for reading and skipping.
inline constexpr unsigned maximumElements = 100'000;
// The memory that these elements may take once they are read: an element of two bytes may become a record of hundreds.
inline constexpr std::size_t maximumElementMemory = 4U << 20U;

// Each records the failure and returns true, so that a reader or writer can return the result. "<what> at byte <offset>"
[[gnu::cold]] bool readFailed(std::string_view what, std::size_t offset) noexcept;
// "expected <expected>, found <found> at byte <offset>"
[[gnu::cold]] bool readMismatch(std::string_view expected, std::string_view found, std::size_t offset) noexcept;
[[gnu::cold]] bool writeFailed(std::string_view what) noexcept;

// The type as error texts name it: "an integer"; "" for `invalid`.
[[nodiscard]] std::string_view nameOf(util::serializer::ValueType type) noexcept;

// Texts that several encodings use.
namespace fault {
inline constexpr const char* tooDeep = "containers nested more than 64 deep";
inline constexpr const char* tooManyElements = "more than 100000 array elements";
inline constexpr const char* tooMuchMemory = "array elements that take more than 4 MiB of memory";
inline constexpr const char* notUtf8 = "a string is not valid UTF-8";
inline constexpr const char* notFinite = "an infinity or NaN";
inline constexpr const char* integerTooLarge = "an integer beyond 64 bits";
inline constexpr const char* integerNotExact = "an integer that no double is equal to";
inline constexpr const char* noUuid = "a string that is no UUID";
inline constexpr const char* openAtEnd = "the document ends inside a container";
}  // namespace fault

}  // namespace kelo::serializer
