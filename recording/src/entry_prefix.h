// What an entry's line says before its document, read without the rest.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// Refers to the line. Thread: any (a value).
struct EntryPrefix {
    std::chrono::nanoseconds at{0};
    std::uint64_t number = 0;
    std::string_view source{};  // as written: service, path and parameters
    EntryKind kind = EntryKind::state;
};

// False unless the line begins as `lineOf` writes it, with a number, and ends as an object does. Says nothing of what comes in
// between.
[[nodiscard]] bool readPrefix(std::string_view line, EntryPrefix& prefix) noexcept;

}  // namespace hmx::recording
