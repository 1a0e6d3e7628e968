// The parts of reading and writing records that do not depend on the type.

#include "kelo/record.h"

#include <algorithm>
#include <string>

#include "kelo/errors.h"

namespace kelo::record {

namespace detail {

bool nullPointer() {
    std::ErrorOutput{errors::Error, errors::nullPointer, "std::shared_ptr"};
    return true;
}

bool valueOutOfEnum(unsigned value) {
    std::ErrorOutput{errors::Error, errors::writeFailure, std::to_string(value) + " is no value of the enumeration"};
    return true;
}

bool unknownName(std::span<const std::string_view> names) {
    std::string text;
    for (const std::string_view name : names) text.append(text.empty() ? "not one of \"" : "\", \"").append(name);
    std::ErrorOutput{errors::Error, errors::readFailure, text.append("\"")};
    return true;
}

bool missing(std::string_view key) {
    std::ErrorOutput{errors::Error, errors::readFailure, "missing"};
    return failedIn(key);
}

bool outsideInt(std::size_t offset) {
    std::ErrorOutput{errors::Error, errors::readFailure, "integer outside 32 bits at byte " + std::to_string(offset)};
    return true;
}

bool failedIn(std::string_view key) {
    std::ErrorStorage::prependPath(key);
    return true;
}

bool failedIn(std::size_t index) {
    std::ErrorStorage::prependPath(index);
    return true;
}

int findSorted(std::span<const std::string_view> names, std::string_view name) noexcept {
    const auto found = std::lower_bound(names.begin(), names.end(), name);
    return found != names.end() && *found == name ? static_cast<int>(found - names.begin()) : -1;
}

int findUnsorted(std::span<const std::string_view> names, std::string_view name) noexcept {
    const auto found = std::find(names.begin(), names.end(), name);
    return found != names.end() ? static_cast<int>(found - names.begin()) : -1;
}

}  // namespace detail

std::string typeText(const MemberDescription& member) {
    std::string text{member.isArray ? "array of " : ""};
    return text.append(member.typeName);
}

}  // namespace kelo::record
