#include "road_wire.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "traffic.h"

namespace road {

using traffic::fail;

std::string socketName(std::string_view service) {
    std::string name;
    for (const char c : service) name += c == '/' ? "%2F" : std::string{c};
    return name + ".sock";
}

int listenAt(const std::string& directory, std::string_view service) {
    const std::string path = directory + "/" + socketName(service);
    const std::string hidden = path + ".new";
    ::unlink(hidden.c_str());
    const int fd = testing_support::listenAt(hidden);
    if (fd < 0) fail(hidden);
    if (std::rename(hidden.c_str(), path.c_str()) != 0) fail(path);
    return fd;
}

int connectTo(const std::string& directory, std::string_view service) {
    const std::string path = directory + "/" + socketName(service);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (const int fd = testing_support::connectTo(path); fd >= 0) return fd;
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
    sendAll(fd, helloFrame(service, 1, "road"));
    for (bool greeted = false; !greeted;) {
        if (!reader.receive(fd)) fail("no hello");
        reader.frames([&](const Frame&) { greeted = true; });
    }
    return fd;
}

}  // namespace road
