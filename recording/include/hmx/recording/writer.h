// Writes a recording.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// Hands complete lines to the kernel, so that whatever ends the process spoils the last one at most. A resource.
// Errors: Error, system, with the file and the reason, when the bytes cannot be stored; what was written before stays readable.
// Thread: one at a time.
class Writer {
public:
    // `descriptor` is not owned. `name`: of the file, for messages. Writes the head.
    Writer(int descriptor, std::string name, const Head& head);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // One line, written at once.
    void write(const Entry& entry) { writeLines(lineOf(entry)); }
    // Lines as `lineOf` makes them, in one piece.
    void writeLines(std::string_view lines);

    // The end: until when was recorded.
    void stop(std::chrono::nanoseconds at) { writeLines(stopLine(at)); }

    // What has been written, in bytes and lines, the head among them.
    std::uint64_t bytes() const noexcept { return bytes_; }
    std::uint64_t lines() const noexcept { return lines_; }

private:
    int descriptor_;
    std::string name_;
    std::uint64_t bytes_ = 0;
    std::uint64_t lines_ = 0;
};

}  // namespace hmx::recording
