// The result of a driver: figures, their limits, and the line that is printed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// Thread: one at a time.
class Report {
public:
    // `room`: the factor for limits of time, in "ms" or "times" another one.
    explicit Report(double room = 1) : room_{room} {}

    void atMost(std::string_view name, double figure, double limit, std::string_view unit = {});
    void atLeast(std::string_view name, double figure, double limit, std::string_view unit = {});
    // A figure without a limit, for information.
    void fact(std::string_view name, double figure, std::string_view unit = {});
    // A broken promise, or a failed driver, that is not about a figure.
    void broken(std::string_view what);
    // Helps to find the cause: printed below the line of a broken promise.
    void note(std::string what);

    // A driver that has checked no limit has proved nothing.
    bool held() const noexcept { return limits_ > 0 && broken_ == 0; }
    const std::string& line() const noexcept { return line_; }
    const std::vector<std::string>& notes() const noexcept { return notes_; }

private:
    void add(std::string_view name, double figure, std::string_view unit, std::string_view limit);

    const double room_;
    std::string line_;
    std::vector<std::string> notes_;
    unsigned limits_ = 0;
    unsigned broken_ = 0;
};

}  // namespace campaign
