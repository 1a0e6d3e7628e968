// The application's own figures, shown in the status next to the platform's counters.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string_view>

namespace kelo {

// `name` is a literal; gauges of the same name are shown as their sum. A resource: shown while it exists. Thread: any.
class Gauge {
public:
    explicit Gauge(const char* name);
    ~Gauge();
    Gauge(const Gauge&) = delete;
    Gauge& operator=(const Gauge&) = delete;

    void add(std::int64_t number) noexcept { value_.fetch_add(number, std::memory_order_relaxed); }
    void set(std::int64_t number) noexcept { value_.store(number, std::memory_order_relaxed); }
    std::int64_t value() const noexcept { return value_.load(std::memory_order_relaxed); }

private:
    friend std::map<std::string_view, std::int64_t> readGauges();

    const char* const name_;
    std::atomic<std::int64_t> value_{0};
};

// The values of all gauges of the process, by name. Thread: any.
[[nodiscard]] std::map<std::string_view, std::int64_t> readGauges();

}  // namespace kelo
