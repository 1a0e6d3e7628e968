// Plays the supervisor: receives what a process tells it, and the descriptors that it is to keep.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

// Thread: one at a time.
class NotifySocket {
public:
    // `address`: a path, or a name in the abstract space after '@'; what $NOTIFY_SOCKET is to be.
    explicit NotifySocket(const std::string& address) : socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
        sockaddr_un own{};
        own.sun_family = AF_UNIX;
        std::memcpy(own.sun_path, address.data(), address.size());
        if (address.front() == '@') own.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&own), size) != 0)
            throw std::runtime_error{"cannot bind " + address};
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket() {
        ::close(socket_);
        for (const auto& [name, descriptor] : kept) ::close(descriptor);
    }

    // The next message, waited for; "" if none comes in time.
    std::string take(int milliseconds = 10'000) {
        pollfd ready{socket_, POLLIN, 0};
        if (::poll(&ready, 1, milliseconds) != 1) return "";
        char text[1024];
        iovec room{text, sizeof text};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &room;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const auto size = ::recvmsg(socket_, &message, MSG_CMSG_CLOEXEC);
        std::string told{text, static_cast<std::size_t>(size)};
        const auto at = told.find("FDNAME=");
        const std::string name = at == std::string::npos ? "" : told.substr(at + 7, told.find('\n', at) - at - 7);
        if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
            std::memcpy(&kept.emplace_back(name, -1).second, CMSG_DATA(header), sizeof(int));
        } else if (told.starts_with("FDSTOREREMOVE=1")) {
            std::erase_if(kept, [&](const auto& each) { return each.first == name && ::close(each.second) == 0; });
        }
        return told;
    }

    std::vector<std::pair<std::string, int>> kept;  // descriptors and their names, in the order in which they came

private:
    const int socket_;
};

}  // namespace testing_support
