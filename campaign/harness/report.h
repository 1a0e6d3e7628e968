// The result of a driver: figures with their limits, and the line that is printed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// Thread: one at a time.
class Report {
public:
    // `room`: what limits in milliseconds are multiplied by.
    explicit Report(double room = 1) : room_{room} {}

    void atMost(std::string_view name, double figure, double limit, std::string_view unit = {});
    void atLeast(std::string_view name, double figure, double limit, std::string_view unit = {});
    // A figure that is printed and has no limit.
    void fact(std::string_view name, double figure, std::string_view unit = {});
    // What broke the promise, or the driver, apart from figures.
    void broken(std::string_view what);
    // For anyone who looks for the cause: printed below the line of a broken promise.
    void note(std::string what);

    // A driver that checked nothing against a limit has proved nothing.
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
