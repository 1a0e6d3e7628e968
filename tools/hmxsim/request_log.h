// What arrived at the simulated services.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "kelo/request.h"

namespace hmxsim {

// Keeps the last requests, within a bound, and writes all of them to a file where one is wanted: one JSON object a line.
// Thread: the simulator's worker.
class RequestLog {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit RequestLog(Time start) : start_{start} {}

    // Records to the file from now on, replacing what it held; "-" is standard output. True on failure, with errno set.
    bool recordTo(const std::string& file);
    void add(std::string_view service, const kelo::Request& request, Time arrived);
    void clear() { kept_.clear(), keptBytes_ = 0; }
    // The newest of the kept requests whose lines are at most `bytes` long together, oldest first: a JSON array.
    std::string toJson(std::size_t bytes) const;

private:
    struct Entry {
        std::uint64_t number;  // from 1
        std::string_view service;
        std::chrono::milliseconds at;  // since the start
        kelo::Request request;
    };
    static std::string lineOf(const Entry& entry);
    void record(const Entry& entry);

    const Time start_;
    std::uint64_t count_ = 0;
    std::deque<Entry> kept_;
    std::size_t keptBytes_ = 0;  // of bodies
    std::ofstream file_;
    std::ostream* out_ = nullptr;
};

}  // namespace hmxsim
