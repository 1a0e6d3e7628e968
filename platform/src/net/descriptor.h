// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace kelo::net {

// A resource; closed when destroyed. Thread: one at a time.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : fd_{fd} {}
    Descriptor(Descriptor&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset() noexcept {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

}  // namespace kelo::net
