// A provider that writes and reads raw bytes: a correct hello, then whatever its script says.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "harness/scope.h"
#include "harness/wire.h"

namespace campaign {

// Serves one connection after the other on a thread of its own, where the script runs too. Thread: any.
class ScriptedProvider {
public:
    // Called with each frame after the hello; `send` writes to its connection.
    using Send = std::function<void(const Bytes&)>;
    using Script = std::function<void(const Frame&, const Send& send)>;

    ScriptedProvider(const std::string& path, Script script, Bytes hello = helloAnswer());
    ScriptedProvider(const ScriptedProvider&) = delete;
    ScriptedProvider& operator=(const ScriptedProvider&) = delete;
    ~ScriptedProvider();

private:
    void run();
    void serve(int fd);

    const Script script_;
    const Bytes hello_;
    int listener_ = -1;
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

}  // namespace campaign
