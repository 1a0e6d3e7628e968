// The lines of a file, without their ends.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace hmx::recording {

// A resource. Errors: Error, system. Thread: one at a time.
class LineSplitter {
public:
    // Of more, no recorder's line consists.
    static constexpr std::size_t longest = std::size_t{64} * 1024U * 1024U;

    // `file`: a path, or "-" for standard input.
    explicit LineSplitter(const std::string& file);
    LineSplitter(const LineSplitter&) = delete;
    LineSplitter& operator=(const LineSplitter&) = delete;
    ~LineSplitter();

    // False at the end. `line` is good until the next call; of a line that is too long, it is empty.
    bool next(std::string_view& line);
    // Of the line that came last: its number, from 1; whether it has an end; whether it was too long.
    std::uint64_t number() const noexcept { return number_; }
    bool isComplete() const noexcept { return isComplete_; }
    bool isTooLong() const noexcept { return isTooLong_; }

private:
    bool fill();

    std::string name_;
    int descriptor_;
    std::string buffer_;
    std::size_t begin_ = 0;  // of what has not been handed out
    std::uint64_t number_ = 0;
    bool isComplete_ = true;
    bool isTooLong_ = false;
};

}  // namespace hmx::recording
