#include "road_wire.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "traffic.h"

namespace road {

using traffic::fail;

namespace {

void appendHead(Bytes& out, unsigned major, std::size_t value) {
    const unsigned type = major << 5U;
    if (value < 24) {
        out.push_back(static_cast<std::uint8_t>(type | value));
    } else if (value < 256) {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 24U), static_cast<std::uint8_t>(value)});
    } else {
        out.insert(out.end(), {static_cast<std::uint8_t>(type | 25U), static_cast<std::uint8_t>(value >> 8U),
                               static_cast<std::uint8_t>(value)});
    }
}

void appendText(Bytes& out, std::string_view text) {
    appendHead(out, 3, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

// `number`: a field with a number, which comes first.
Bytes makeFrame(FrameType type, std::uint8_t flags, std::pair<std::string_view, std::size_t> number,
                std::initializer_list<Field> fields, std::string_view payload) {
    Bytes frame(headerSize);
    frame[4] = type;
    frame[5] = flags;
    appendHead(frame, 5, fields.size() + (number.first.empty() ? 0 : 1));
    if (!number.first.empty()) {
        appendText(frame, number.first);
        appendHead(frame, 0, number.second);
    }
    for (const auto& [key, value] : fields) {
        appendText(frame, key);
        appendText(frame, value);
    }
    frame.insert(frame.end(), payload.begin(), payload.end());
    putNumber(frame.data(), frame.size() - headerSize, 4);
    return frame;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail(path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

}  // namespace

Bytes makeHello(std::initializer_list<Field> fields) {
    return makeFrame(hello, 0, {"$version", 1}, fields, {});
}

Bytes makeRequest(std::uint8_t flags, std::initializer_list<Field> fields, std::string_view payload) {
    return makeFrame(request, flags, {}, fields, payload);
}

Bytes makeAnswer(std::uint64_t id, std::uint8_t flags, std::string_view payload) {
    Bytes frame = makeFrame(next, flags, {"$status", 200}, {{"$mime-type", "application/json"}}, payload);
    setId(frame, id);
    return frame;
}

std::uint64_t numberAt(const std::uint8_t* at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value |= std::uint64_t{at[i]} << (8 * i);
    return value;
}

void putNumber(std::uint8_t* at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::string socketName(std::string_view service) {
    std::string name;
    for (const char c : service) name += c == '/' ? "%2F" : std::string{c};
    return name + ".sock";
}

int listenAt(const std::string& directory, std::string_view service) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const std::string path = directory + "/" + socketName(service);
    const std::string hidden = path + ".new";
    ::unlink(hidden.c_str());
    const sockaddr_un address = addressOf(hidden);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 64) != 0) fail(hidden);
    if (std::rename(hidden.c_str(), path.c_str()) != 0) fail(path);
    return fd;
}

int connectTo(const std::string& directory, std::string_view service) {
    const std::string path = directory + "/" + socketName(service);
    const sockaddr_un address = addressOf(path);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
        ::close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    fail(path);
}

bool sendAll(int fd, const Bytes& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

Sends sendsOf(std::string_view name) {
    return name == "single" ? Sends::single : Sends::gathered;
}

void Outbox::add(const Bytes& frame) {
    bytes_.insert(bytes_.end(), frame.begin(), frame.end());
}

bool Outbox::flush(int fd) {
    bool sent = true;
    if (sends_ == Sends::gathered && !bytes_.empty()) {
        sent = sendAll(fd, bytes_);
    } else {
        for (std::size_t at = 0; sent && at < bytes_.size();) {
            const std::size_t size = headerSize + numberAt(&bytes_[at], 4);
            sent = ::send(fd, &bytes_[at], size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
            at += size;
        }
    }
    bytes_.clear();
    return sent;
}

bool FrameReader::receive(int fd) {
    if (buffer_.size() - kept_ < chunk) buffer_.resize(kept_ + chunk);
    const auto size = ::recv(fd, buffer_.data() + kept_, buffer_.size() - kept_, 0);
    if (size > 0) kept_ += static_cast<std::size_t>(size);
    return size > 0;
}

int greet(const std::string& directory, std::string_view service, FrameReader& reader) {
    const int fd = connectTo(directory, service);
    sendAll(fd, makeHello({{"$application", "road"}, {"$service-path", service}}));
    for (bool greeted = false; !greeted;) {
        if (!reader.receive(fd)) fail("no hello");
        reader.frames([&](const Frame&) { greeted = true; });
    }
    return fd;
}

}  // namespace road
