// Signals as something to wait for.
#pragma once

#include <csignal>
#include <initializer_list>
#include <optional>

namespace hmxctl {

// As long as it lives, these signals do not end the process and interrupt nothing: they are taken from a descriptor. Made before
// the process has other threads, which would get them otherwise. A resource. Errors: Failure. Thread: main.
class Signals {
public:
    explicit Signals(std::initializer_list<int> numbers);
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    // Readable when there is one to take.
    int descriptor() const noexcept { return descriptor_; }
    // The next one; nothing if there is none now.
    std::optional<int> take() const;

private:
    sigset_t before_{};
    int descriptor_ = -1;
};

}  // namespace hmxctl
