// Process-wide set-up of the utilities.
#pragma once

#include <string>
#include <string_view>

namespace util {

class Util {
public:
    // Its destructor flushes the tracing output.
    class [[nodiscard]] Guard {
    public:
        Guard() = default;
        Guard(Guard&& other) noexcept;
        Guard& operator=(Guard&&) = delete;
        ~Guard();

    private:
        bool active_ = true;
    };

    // Sets the process's name in the tracing output. `tracing`: whether lines are written at all. `reserved…`: part of the
    // framework's interface, no effect here. `nameProcess`: also makes it the name of the main thread, as tools such as `top -H`
    // show it. Thread: main, once.
    static Guard init(std::string_view applicationName, bool tracing, bool reservedConfig, bool nameProcess,
                      bool reservedWatchdog);

    static const std::string& applicationName() noexcept;
};

}  // namespace util
