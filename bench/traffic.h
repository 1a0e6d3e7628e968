// What the measuring programs share: options, the upstream's answers, and turning latencies into figures.
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

// Ends the program with `what` and the reason (errno).
[[noreturn]] void fail(const std::string& what);

// Tells the parent that the program serves: a line on standard output.
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

// The answer of a display manager: four displays, about 700 bytes of JSON.
std::string displayList();
// The size of the bridge's answer for these: the page and the headers of its frame.
inline constexpr std::size_t answerSize = 1135;

struct Load {
    // From the options count, warm_up, in_flight and clients.
    explicit Load(const Options& options);

    std::size_t count;     // measured requests of each client
    std::size_t warmUp;    // requests of each client before these
    std::size_t inFlight;  // of each client
    std::size_t clients;   // each has a connection and a thread of its own
};

// What one client asks and receives. Requests are numbered from 1. Thread: one at a time.
class Book {
public:
    explicit Book(const Load& load);

    [[nodiscard]] bool isFinished() const noexcept { return answered_ == total_; }
    // Whether another request may be in flight.
    [[nodiscard]] bool mayAsk() const noexcept { return asked_ < total_ && asked_ - answered_ < load_.inFlight; }
    // Returns the number of the next request. `due`: when it should be sent; its latency begins then.
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

// Runs `client` for each client, with its book, and prints the figures of all as one JSON object.
void measure(const Load& load, const std::function<void(Book&)>& client);

// The value, in microseconds, below which `share` of the values lie. Sorts the values.
double microsecondsAt(std::vector<std::int64_t>& nanoseconds, double share);

}  // namespace traffic
