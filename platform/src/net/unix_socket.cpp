#include "net/unix_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>

// A socket's address has room for a hundred characters, which a directory's name may exceed by itself. So the kernel is told the
// directory by its descriptor, as /proc shows it: short, and it cannot lead to any other directory than the one that was opened.
//
// Close-on-exec from the first moment, so that no child keeps a service alive that its parent gave up.

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
