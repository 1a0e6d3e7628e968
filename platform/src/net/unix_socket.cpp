#include "net/unix_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

// Close-on-exec from the first moment, so that no child keeps a service alive that its parent gave up.

namespace kelo::net {
namespace {

bool fillAddress(const std::string& path, sockaddr_un& address) noexcept {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

Descriptor makeSocket() noexcept {
    return Descriptor{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
}

template <class Use>
Descriptor withAddress(const std::string& path, Use use) noexcept {
    sockaddr_un address;
    if (!fillAddress(path, address)) return {};
    Descriptor socket = makeSocket();
    if (!socket) return {};
    if (!use(socket.get(), reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(sizeof address))) {
        const int error = errno;
        socket.reset();
        errno = error;
    }
    return socket;
}

}  // namespace

Descriptor connectTo(const std::string& path) noexcept {
    return withAddress(path, [](int fd, const sockaddr* address, socklen_t size) { return ::connect(fd, address, size) == 0; });
}

Descriptor listenAt(const std::string& path) noexcept {
    return withAddress(path, [](int fd, const sockaddr* address, socklen_t size) {
        return ::bind(fd, address, size) == 0 && ::listen(fd, 128) == 0;
    });
}

}  // namespace kelo::net
