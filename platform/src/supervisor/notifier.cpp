// The protocol is one datagram for each message, sent to the address in $NOTIFY_SOCKET: a path, or a name in the abstract space
// if it begins with '@'. The kernel tells the supervisor who has sent it. Nothing is ever received.
//
// The socket is not connected: the supervisor may be replaced meanwhile and bind the address again.
#include "kelo/supervisor/notifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "tracing/channel.h"

namespace kelo::supervisor {
namespace {

const tracing::Channel channel{"KELO_RUNTIME"};

constexpr std::chrono::milliseconds patience{5000};
constexpr std::chrono::milliseconds pause{5};

}  // namespace

Notifier::Notifier() {
    const char* const address = std::getenv("NOTIFY_SOCKET");
    if (address == nullptr || *address == '\0') return;
    address_ = address;
    if (address_.front() == '@') address_.front() = '\0';
    const bool isUsable =
        (address_.front() == '\0' || address_.front() == '/') && address_.size() <= sizeof(sockaddr_un::sun_path);
    if (isUsable) socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket_ < 0) {
        tracing::logCV(channel, 4, "cannot notify %s: %s", address, isUsable ? std::strerror(errno) : "not a socket's address");
    }
}

Notifier::~Notifier() {
    if (socket_ >= 0) ::close(socket_);
}

bool Notifier::tell(std::string_view message, int descriptor) const noexcept {
    if (!isWanted()) return true;
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path, address_.data(), address_.size());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): an iovec serves reading, too; sendmsg changes nothing
    iovec text{const_cast<char*>(message.data()), message.size()};
    msghdr datagram{};
    datagram.msg_name = &to;
    datagram.msg_namelen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    datagram.msg_iov = &text;
    datagram.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    if (descriptor >= 0) {
        datagram.msg_control = control;
        datagram.msg_controllen = sizeof control;
        cmsghdr* const header = CMSG_FIRSTHDR(&datagram);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(socket_, &datagram, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

bool Notifier::insist(std::string_view message, int descriptor) const noexcept {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!tell(message, descriptor)) {
        if (errno != EAGAIN || std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

}  // namespace kelo::supervisor
