#include "net/unix_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>

// A socket address has room for about a hundred characters, which a directory's path alone may exceed. So the directory is given
// by its descriptor, as a path below /proc. That is short and cannot lead to any directory but the one that was opened.
//
// Descriptors are close-on-exec from their creation, so that no child process keeps a service alive that its parent has given up.

namespace kelo::net {
namespace {

bool fillAddress(int directory, std::string_view name, sockaddr_un& address) noexcept {
    address = {};
    address.sun_family = AF_UNIX;
    const int size = std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%.*s", directory,
                                   static_cast<int>(name.size()), name.data());
    if (size < 0 || static_cast<std::size_t>(size) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

Descriptor makeSocket() noexcept {
    return Descriptor{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
}

template <class Use>
Descriptor withAddress(int directory, std::string_view name, Use use) noexcept {
    sockaddr_un address;
    if (!fillAddress(directory, name, address)) return {};
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

Descriptor connectTo(int directory, std::string_view name) noexcept {
    return withAddress(directory, name,
                       [](int fd, const sockaddr* address, socklen_t size) { return ::connect(fd, address, size) == 0; });
}

Descriptor listenAt(int directory, std::string_view name) noexcept {
    return withAddress(directory, name, [](int fd, const sockaddr* address, socklen_t size) {
        return ::bind(fd, address, size) == 0 && ::listen(fd, 128) == 0;
    });
}

}  // namespace kelo::net
