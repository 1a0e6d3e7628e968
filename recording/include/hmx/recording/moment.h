// What all sources of a recording had said up to one time.
#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hmx/recording/entry.h"
#include "hmx/recording/reader.h"

namespace hmx::recording {

// Thread: any (a value).
struct SourceState {
    Source source{};
    EntryKind kind = EntryKind::state;  // `state` as long as the source answers, else what came instead
    bool isKnown = false;               // whether there is a document
    Json document{};                    // the last answer; stands through losses
    int status = 0;                     // of the last entry
    std::string reason{};               // likewise
    std::chrono::nanoseconds since{0};  // when that came
};

// Moves on entry by entry. Thread: one at a time (a value).
class Moment {
public:
    // Null if the recording does not follow that source, or had not heard of it yet.
    const SourceState* find(const Source& source) const;
    // All, by key.
    const std::map<std::string, SourceState>& sources() const noexcept { return sources_; }
    // The time of the last entry that was applied, or the later one until when nothing more was said.
    std::chrono::nanoseconds at() const noexcept { return at_; }
    void passUntil(std::chrono::nanoseconds at) noexcept { at_ = std::max(at_, at); }

    // Returns the state of the entry's source after it. Errors: Error, unreadable, when a change does not fit the answer before;
    // the source then counts as unknown until its next whole answer.
    const SourceState& apply(Entry entry);

private:
    std::map<std::string, SourceState> sources_;
    std::chrono::nanoseconds at_{0};
};

// All that was said up to `at`; without it, up to the end. Reads no more than it must: of each source the last whole answer and
// what came after it. `problems`: takes what is wrong with the file, if not null. Errors: as of Reader. Thread: any.
[[nodiscard]] Moment momentAt(const std::string& file, std::optional<std::chrono::nanoseconds> at = {},
                              std::vector<Problem>* problems = nullptr);

}  // namespace hmx::recording
