// Messages to the supervisor: the init system that has started this process and watches it.
#pragma once

#include <string>
#include <string_view>

namespace kelo::supervisor {

// A resource: a socket, opened once so that messages get through when no descriptor is free. Without $NOTIFY_SOCKET it does
// nothing. Thread: any.
class Notifier {
public:
    Notifier();
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    // Whether there is a supervisor that wants to be told.
    bool isWanted() const noexcept { return socket_ >= 0; }

    // Sends one message: lines of the form "NAME=VALUE", such as "READY=1". `descriptor`: sent along; negative: none. Never
    // waits; false, and `errno`, if the supervisor could not take it now. True if there is no supervisor.
    bool tell(std::string_view message, int descriptor = -1) const noexcept;
    // The same, but waits for up to five seconds. Thread: one that may wait.
    bool insist(std::string_view message, int descriptor = -1) const noexcept;

private:
    std::string address_;  // as the kernel takes it: an abstract one begins with a zero byte
    int socket_ = -1;
};

}  // namespace kelo::supervisor
