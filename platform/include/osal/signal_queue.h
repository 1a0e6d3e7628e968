// Signals as something to wait for.
#pragma once

#include <csignal>
#include <initializer_list>
#include <optional>

namespace osal {

// As long as it lives, these signals do not end the process and interrupt nothing: they are taken from a descriptor. Made before
// the process has other threads, which would get them otherwise. A resource. Errors: std::system_error. Thread: main.
class SignalQueue {
public:
    explicit SignalQueue(std::initializer_list<int> signals);
    SignalQueue(const SignalQueue&) = delete;
    SignalQueue& operator=(const SignalQueue&) = delete;
    ~SignalQueue();

    // Readable when there is one to take.
    int descriptor() const noexcept { return descriptor_; }
    // The next one; nothing if there is none now.
    std::optional<int> take() const noexcept;

private:
    sigset_t before_{};
    int descriptor_ = -1;
};

}  // namespace osal
