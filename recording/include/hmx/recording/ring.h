// The latest lines of a recording, in bounded memory.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <string>

#include "hmx/recording/entry.h"
#include "hmx/recording/moment.h"
#include "hmx/recording/writer.h"

namespace hmx::recording {

// What falls out of it is not forgotten: it becomes the state that each source begins with. Thread: one at a time.
class Ring {
public:
    // `span`: how far back it reaches at most. `mostBytes`: how much it holds of lines at most.
    Ring(std::chrono::nanoseconds span, std::size_t mostBytes) : span_{span}, mostBytes_{mostBytes} {}

    void add(std::chrono::nanoseconds at, std::string line);
    // Writes what there is at that time, and keeps it.
    void write(std::chrono::nanoseconds now, Writer& writer);

    // How far back it reaches at that time.
    std::chrono::nanoseconds reach(std::chrono::nanoseconds now) const { return now - begin_; }
    // Whether it reaches less far back than it should because of its size.
    bool isFull(std::chrono::nanoseconds now) const { return begin_ > now - span_ && begin_ > std::chrono::nanoseconds{0}; }

private:
    struct Line {
        std::chrono::nanoseconds at;
        std::string text;
    };

    void drop(std::chrono::nanoseconds now);

    std::chrono::nanoseconds span_;
    std::size_t mostBytes_;
    std::deque<Line> lines_;
    std::size_t bytes_ = 0;
    Moment base_;                                   // what was said before the first line
    std::map<std::string, std::uint64_t> numbers_;  // of the sources' last entries before it
    std::chrono::nanoseconds begin_{0};
};

}  // namespace hmx::recording
