// A peer made of bytes: says exactly what a test gives it, frame or not, and shows what comes back.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace testing_support {

using Bytes = std::vector<std::uint8_t>;

inline void appendNumber(Bytes& out, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// CBOR text and unsigned integers of less than 64 KiB, and small maps of them, written out by hand.
inline void appendCborHead(Bytes& out, std::uint8_t major, std::size_t value) {
    const auto type = static_cast<std::uint8_t>(major << 5U);
    if (value < 24) {
        out.push_back(static_cast<std::uint8_t>(type | value));
    } else if (value < 256) {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 24U), static_cast<std::uint8_t>(value)});
    } else {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 25U), static_cast<std::uint8_t>(value >> 8U),
                               static_cast<std::uint8_t>(value)});
    }
}
inline void appendCborText(Bytes& out, std::string_view text) {
    appendCborHead(out, 3, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

inline Bytes frame(std::uint8_t type, std::uint8_t flags, std::uint64_t id, const Bytes& body) {
    Bytes out;
    appendNumber(out, body.size(), 4);
    out.push_back(type);
    out.push_back(flags);
    appendNumber(out, 0, 2);
    appendNumber(out, id, 8);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

inline Bytes textMap(std::initializer_list<std::pair<std::string_view, std::string_view>> fields, std::string_view payload = {}) {
    Bytes body;
    appendCborHead(body, 5, fields.size());
    for (const auto& [key, value] : fields) {
        appendCborText(body, key);
        appendCborText(body, value);
    }
    body.insert(body.end(), payload.begin(), payload.end());
    return body;
}

inline Bytes helloFrame(std::string_view servicePath, std::size_t version = 1) {
    Bytes body;
    appendCborHead(body, 5, 3);
    appendCborText(body, "$version");
    appendCborHead(body, 0, version);
    appendCborText(body, "$application");
    appendCborText(body, "raw");
    appendCborText(body, "$service-path");
    appendCborText(body, servicePath);
    return frame(1, 0, 0, body);
}

inline Bytes requestFrame(std::uint64_t id, std::string_view command, std::string_view path, bool oneShot = true,
                          std::string_view payload = {}) {
    return frame(2, oneShot ? 1 : 0, id,
                 textMap({{"$request-command", command}, {"$request-path", path}, {"$mime-type", "application/json"}}, payload));
}

struct RawFrame {
    std::uint8_t type = 0;
    std::uint8_t flags = 0;
    std::uint64_t id = 0;
    Bytes body;

    bool bodyContains(std::string_view text) const {
        return std::string_view{reinterpret_cast<const char*>(body.data()), body.size()}.find(text) != std::string_view::npos;
    }
};

inline sockaddr_un socketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

// Thread: the test's.
class RawPeer {
public:
    RawPeer() = default;
    explicit RawPeer(int fd) : fd_{fd} {}
    explicit RawPeer(const std::string& socketPath) : fd_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        const sockaddr_un address = socketAddress(socketPath);
        if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) close();
    }
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

    // The next frame; nothing when the other end closed first, or patience ended.
    std::optional<RawFrame> receive(int milliseconds = 10'000) {
        for (;;) {
            if (received_.size() >= 16) {
                const std::size_t length = number(0, 4);
                if (received_.size() >= 16 + length) {
                    RawFrame result{received_[4], received_[5], number(8, 8),
                                    Bytes(received_.begin() + 16, received_.begin() + 16 + static_cast<std::ptrdiff_t>(length))};
                    received_.erase(received_.begin(), received_.begin() + 16 + static_cast<std::ptrdiff_t>(length));
                    return result;
                }
            }
            if (!fill(milliseconds)) return std::nullopt;
        }
    }
    // Whether the other end closes the connection, whatever it says before.
    bool seesEnd() {
        while (fill(10'000)) received_.clear();
        return ended_;
    }

private:
    std::uint64_t number(std::size_t at, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) value |= std::uint64_t{received_[at + i]} << (8 * i);
        return value;
    }
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

// Where a peer is waited for. Thread: the test's.
class RawListener {
public:
    explicit RawListener(const std::string& socketPath) : fd_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        const sockaddr_un address = socketAddress(socketPath);
        const bool listens =
            ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && ::listen(fd_, 16) == 0;
        if (!listens) std::abort();
    }
    RawListener(const RawListener&) = delete;
    RawListener& operator=(const RawListener&) = delete;
    ~RawListener() { ::close(fd_); }

    RawPeer accept() { return RawPeer{::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)}; }

private:
    int fd_;
};

}  // namespace testing_support
