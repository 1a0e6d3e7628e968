// Makes the lines of one source out of what it says.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// Numbers them, and writes an answer as what differs from the one before where that is shorter. A whole one comes first, after
// each loss, and whenever the changes since the last one have become large, so that a reader need not go back far.
// Thread: one at a time.
class Trail {
public:
    explicit Trail(Source source) : source_{std::move(source)} {}

    const Source& source() const noexcept { return source_; }

    // The line for an answer. It ends a loss if one was noted since the last answer.
    std::string answer(std::chrono::nanoseconds at, int status, Json document);
    // The line for anything else: lost, missing, ended, failed.
    std::string event(std::chrono::nanoseconds at, Kind kind, int status, std::string reason);
    // What was noted last; nothing at first.
    std::optional<Kind> last() const noexcept { return last_; }
    // The answer that stands; null after anything else but `ended`.
    const Json* document() const noexcept { return document_ ? &*document_ : nullptr; }

private:
    Entry begin(std::chrono::nanoseconds at, Kind kind, int status);

    Source source_;
    std::uint64_t count_ = 0;
    std::optional<Kind> last_;
    bool isDown_ = false;
    std::optional<Json> document_;  // of the last answer, unless a whole one is due
    std::size_t wholeBytes_ = 0;    // of the line of the last whole answer
    std::size_t changeBytes_ = 0;   // of the lines since
};

// Writes into `change` what makes `before` into `now`; false if no steps do, or not exactly.
[[nodiscard]] bool findSteps(const Json& before, const Json& now, Entry& change);

// Makes `document` what it was after the change. Nothing if it went well, else what does not fit; then `document` may be half
// changed.
[[nodiscard]] std::optional<std::string> applySteps(Json& document, const Entry& change);

}  // namespace hmx::recording
