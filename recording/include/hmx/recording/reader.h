// Reads a recording, as far as it is good.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// A line that was left out, or is not as it should be. Thread: any (a value).
struct Problem {
    std::uint64_t line = 0;  // from 1
    std::string what;
};

// Hands out the entries of a file in its order. What it hands out can be applied: a change that does not follow upon the one
// before, because a line is missing or spoiled, is left out, and so are those after it until the source's next whole answer.
// A resource. Errors: Error, system, when the file cannot be read; invalid, when it is no recording, or a newer one.
// Thread: one at a time.
class Reader {
public:
    // `file`: a path, or "-" for standard input. Reads the head.
    explicit Reader(const std::string& file);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader();

    // Of a file that has none, an empty one; that is a problem, too.
    const Head& head() const noexcept;
    // Nothing at the end.
    std::optional<Entry> next();
    // Until when is recorded, as far as it has been read: the latest time of an entry, or when the recorder stopped.
    std::chrono::nanoseconds end() const noexcept;
    // The number of the line that `next` has handed out last.
    std::uint64_t line() const noexcept;
    // Those so far. After a thousand, only their number is kept: see `problemCount`.
    const std::vector<Problem>& problems() const noexcept;
    std::uint64_t problemCount() const noexcept;

private:
    class Lines;
    std::unique_ptr<Lines> lines_;
};

// A file that can be read more than once: `file` itself; of "-" a copy of all that standard input has to say, which lasts as
// long as the process. Errors: Error, system.
[[nodiscard]] std::string rereadable(const std::string& file);

// Until when is recorded: when the recorder stopped, else the time of the last entry; 0 if there is neither. Errors: as of
// Reader.
[[nodiscard]] std::chrono::nanoseconds endOf(const std::string& file);

// The time at which every source had said something: that of the entry before the first with which a source says more. Errors:
// as of Reader.
[[nodiscard]] std::chrono::nanoseconds beginningOf(const std::string& file);

}  // namespace hmx::recording
