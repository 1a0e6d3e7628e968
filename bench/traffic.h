// What the measured programs share: options, the upstream's answers, and how latencies become figures.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace traffic {

using Clock = std::chrono::steady_clock;

// Ends the program with what failed and why (errno).
[[noreturn]] void fail(const std::string& what);

// Tells whoever started the program that it serves: a line on standard output.
void sayReady();

// The "key=value" arguments of a program. Thread: any (a value).
class Options {
public:
    explicit Options(std::span<char*> arguments);

    [[nodiscard]] std::string text(std::string_view key, std::string_view otherwise = {}) const;
    [[nodiscard]] std::size_t number(std::string_view key, std::size_t otherwise) const;

private:
    std::map<std::string, std::string, std::less<>> values_;
};

// What a display manager answers: four displays, about 700 bytes of JSON.
std::string displayList();
// The size of what the bridge answers then: the page and the headers of its frame.
inline constexpr std::size_t answerSize = 1135;

struct Load {
    // From the options count, warm_up, in_flight and clients.
    explicit Load(const Options& options);

    std::size_t count;     // requests that are measured, of each client
    std::size_t warmUp;    // and those before them
    std::size_t inFlight;  // of each client
    std::size_t clients;   // each with a connection and a thread of its own
};

// What one client asks and hears. Requests are numbered from 1. Thread: one at a time.
class Book {
public:
    explicit Book(const Load& load);

    [[nodiscard]] bool isFinished() const noexcept { return answered_ == total_; }
    // Whether there is room for another request in flight.
    [[nodiscard]] bool mayAsk() const noexcept { return asked_ < total_ && asked_ - answered_ < load_.inFlight; }
    // The number of the request that is sent next. `due`: when it should be, which is when its latency begins.
    std::size_t ask(Clock::time_point due = Clock::now());
    void answer(std::size_t number, std::size_t bytes, Clock::time_point now = Clock::now());

private:
    friend void measure(const Load& load, const std::function<void(Book&)>& client);

    const Load load_;
    const std::size_t total_;
    std::vector<Clock::time_point> begin_;
    std::vector<std::int64_t> nanoseconds_;
    std::size_t asked_ = 0;
    std::size_t answered_ = 0;
    std::size_t bytes_ = 0;  // of the last answer
};

// Has each client fill its book and prints the figures of all as one JSON object.
void measure(const Load& load, const std::function<void(Book&)>& client);

// The value below which `share` of the values lie, in microseconds; sorts them.
double microsecondsAt(std::vector<std::int64_t>& nanoseconds, double share);

}  // namespace traffic
