#include "listening.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "options.h"

namespace hmxgateway {
namespace {

constexpr std::string_view unixPrefix{"unix:"};
constexpr int backlog = 512;
// What a client does not read stays with us, where it is replaced by what is newer.
constexpr int sendBuffer = 128 << 10;

int codeOf(int error) {
    return error == EACCES || error == EPERM ? exitNotPermitted : exitUnexpected;
}

[[noreturn]] void fail(const std::string& what) {
    const int error = errno;
    throw StartFailure{codeOf(error), what + ": " + std::strerror(error)};
}

// Whether somebody listens there.
bool isAlive(const sockaddr_un& name) {
    const Descriptor probe{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    return probe && (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 || errno == EAGAIN);
}

}  // namespace

Listening::Listening(const std::string& address) {
    if (address.starts_with(unixPrefix)) {
        listenUnix(address);
    } else {
        listenTcp(address);
    }
    (void)::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    if (::listen(socket_.get(), backlog) != 0) fail("cannot listen on " + address);
}

Listening::~Listening() {
    if (!path_.empty()) ::unlink(path_.c_str());
}

void Listening::listenUnix(const std::string& address) {
    const std::string path = address.substr(unixPrefix.size());
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof name.sun_path) {
        throw StartFailure{exitUsage, "--listen " + address + ": the path of a socket has 1 to " +
                                          std::to_string(sizeof name.sun_path - 1) + " bytes"};
    }
    std::memcpy(name.sun_path, path.c_str(), path.size());
    socket_ = Descriptor{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const auto bindTo = [&] {
        const mode_t before = ::umask(0177);
        const bool done = ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
        const int error = errno;
        ::umask(before);
        errno = error;
        return done;
    };
    if (!bindTo()) {
        struct stat status {};
        const bool isLeftOver =
            errno == EADDRINUSE && ::lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && !isAlive(name);
        errno = EADDRINUSE;
        if (!isLeftOver) fail("cannot listen on " + address);
        ::unlink(path.c_str());
        if (!bindTo()) fail("cannot listen on " + address);
    }
    path_ = path;
    url_ = address;
}

void Listening::listenTcp(const std::string& address) {
    const auto usage = [&] {
        return StartFailure{
            exitUsage, "--listen " + address + ": not HOST:PORT with a numeric address, such as 127.0.0.1:8780 or [::1]:8780"};
    };
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos) throw usage();
    host_ = address.substr(0, colon);
    std::uint16_t port = 0;
    const auto end = std::from_chars(address.data() + colon + 1, address.data() + address.size(), port);
    if (end.ec != std::errc{} || end.ptr != address.data() + address.size()) throw usage();

    sockaddr_storage storage{};
    socklen_t size = 0;
    auto& four = reinterpret_cast<sockaddr_in&>(storage);
    auto& six = reinterpret_cast<sockaddr_in6&>(storage);
    const bool isSix = host_.starts_with('[') && host_.ends_with(']');
    if (isSix && ::inet_pton(AF_INET6, host_.substr(1, host_.size() - 2).c_str(), &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(port);
        size = sizeof six;
        isLocal_ = IN6_IS_ADDR_LOOPBACK(&six.sin6_addr);
    } else if (!isSix && ::inet_pton(AF_INET, host_.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = htons(port);
        size = sizeof four;
        isLocal_ = (ntohl(four.sin_addr.s_addr) >> 24U) == 127;
    } else {
        throw usage();
    }
    socket_ = Descriptor{::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const int yes = 1;
    (void)::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (!socket_ || ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&storage), size) != 0) {
        fail("cannot listen on " + address);
    }
    (void)::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&storage), &size);
    url_ = "http://" + host_ + ":" + std::to_string(ntohs(isSix ? six.sin6_port : four.sin_port)) + "/";
}

std::string readToken(const std::string& file) {
    constexpr std::size_t shortest = 16;
    const Descriptor opened{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
    struct stat status {};
    if (!opened || ::fstat(opened.get(), &status) != 0) {
        throw StartFailure{errno == EACCES ? exitNotPermitted : exitUsage, "--token-file " + file + ": " + std::strerror(errno)};
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw StartFailure{exitNotPermitted, "--token-file " + file + ": others than its owner may use it; chmod 600 " + file};
    }
    std::array<char, 4096> content{};
    const ssize_t size = ::read(opened.get(), content.data(), content.size());
    std::string token{content.data(), static_cast<std::size_t>(std::max<ssize_t>(0, size))};
    token.erase(std::min(token.find_first_of("\r\n"), token.size()));
    if (token.size() < shortest) {
        throw StartFailure{exitUsage,
                           "--token-file " + file + ": a token has at least " + std::to_string(shortest) + " characters"};
    }
    return token;
}

}  // namespace hmxgateway
