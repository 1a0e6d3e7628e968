// A peer made of bytes: sends exactly what a test gives it, whether or not it is a frame, and returns what comes back.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "support/wire.h"

namespace testing_support {

struct RawFrame {
    std::uint8_t type = 0;
    std::uint8_t flags = 0;
    std::uint64_t id = 0;
    Bytes body;

    bool bodyContains(std::string_view text) const {
        return std::string_view{reinterpret_cast<const char*>(body.data()), body.size()}.find(text) != std::string_view::npos;
    }
};

// Thread: the test's.
class RawPeer {
public:
    RawPeer() = default;
    explicit RawPeer(int fd) : fd_{fd} {}
    explicit RawPeer(const std::string& socketPath) : RawPeer{connectTo(socketPath)} {}
    RawPeer(RawPeer&& other) noexcept : fd_{std::exchange(other.fd_, -1)}, received_{std::move(other.received_)} {}
    RawPeer& operator=(RawPeer&&) = delete;
    ~RawPeer() { close(); }

    bool isOpen() const noexcept { return fd_ >= 0; }
    int fd() const noexcept { return fd_; }
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }
    bool send(const Bytes& bytes) {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    // The next frame; nothing if the other end closed first or the time limit was reached.
    std::optional<RawFrame> receive(int milliseconds = 10'000) {
        for (;;) {
            if (const std::size_t size = wholeFrame(received_.data(), received_.size())) {
                const auto end = received_.begin() + static_cast<std::ptrdiff_t>(size);
                RawFrame result{received_[4], received_[5], numberAt(received_.data() + 8, 8),
                                Bytes(received_.begin() + headerSize, end)};
                received_.erase(received_.begin(), end);
                return result;
            }
            if (!fill(milliseconds)) return std::nullopt;
        }
    }
    // Whether the other end closes the connection, whatever it sends before.
    bool seesEnd() {
        while (fill(10'000)) received_.clear();
        return ended_;
    }

private:
    bool fill(int milliseconds) {
        pollfd ready{fd_, POLLIN, 0};
        if (::poll(&ready, 1, milliseconds) <= 0) return false;
        std::uint8_t buffer[16384];
        const auto size = ::recv(fd_, buffer, sizeof buffer, 0);
        ended_ = size <= 0;
        if (ended_) return false;
        received_.insert(received_.end(), buffer, buffer + size);
        return true;
    }

    int fd_ = -1;
    bool ended_ = false;
    Bytes received_;
};

// A socket that listens for a peer. Thread: the test's.
class RawListener {
public:
    explicit RawListener(const std::string& socketPath) : fd_{listenAt(socketPath)} {
        if (fd_ < 0) std::abort();
    }
    RawListener(const RawListener&) = delete;
    RawListener& operator=(const RawListener&) = delete;
    ~RawListener() { ::close(fd_); }

    RawPeer accept() { return RawPeer{::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)}; }

private:
    int fd_;
};

}  // namespace testing_support
