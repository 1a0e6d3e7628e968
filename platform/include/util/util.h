// Process-wide set-up of the utilities.
#pragma once

#include <string>
#include <string_view>

namespace util {

class Util {
public:
    // Undoes the set-up when destroyed: flushes the tracing output.
    class [[nodiscard]] Guard {
    public:
        Guard() = default;
        Guard(Guard&& other) noexcept;
        Guard& operator=(Guard&&) = delete;
        ~Guard();

    private:
        bool active_ = true;
    };

    // Names the process to the tracing output. `tracing`: lines are written at all. `reserved…`: taken for the framework's sake,
    // without effect here. `nameProcess`: the name becomes the main thread's, as tools such as `top -H` show it. Thread: main,
    // once.
    static Guard init(std::string_view applicationName, bool tracing, bool reservedConfig, bool nameProcess,
                      bool reservedWatchdog);

    static const std::string& applicationName() noexcept;
};

}  // namespace util
