#include "harness/relay.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "harness/wire.h"

// A cut is exact: the byte after it is not read. So the end that sent that byte may see a reset, and the other end sees the end
// of the stream after the last byte that was passed on.

namespace campaign {

Relay::Relay(const std::string& path, std::string target) : target_{std::move(target)}, wake_{::eventfd(0, EFD_CLOEXEC)} {
    listener_ = listenAt(path + ".new");
    if (listener_ < 0 || ::rename((path + ".new").c_str(), path.c_str()) != 0) throw Failure{"cannot listen at " + path};
    thread_ = std::thread{[this] { run(); }};
}

Relay::~Relay() {
    {
        const std::lock_guard lock{mutex_};
        isOver_ = true;
    }
    wake();
    thread_.join();
    for (const Link& link : links_) {
        for (const int end : link.ends) ::close(end);
    }
    ::close(listener_);
    ::close(wake_);
}

void Relay::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wake_, &one, sizeof one);
}

void Relay::cutAfter(Way way, std::uint64_t bytes) {
    const std::lock_guard lock{mutex_};
    for (Link& link : links_) link.left[static_cast<std::size_t>(way)] = bytes;
}

void Relay::cutNextAfter(Way way, std::uint64_t bytes) {
    const std::lock_guard lock{mutex_};
    leftOfNext_[static_cast<std::size_t>(way)] = bytes;
}

void Relay::damage(Way way, std::uint64_t bytes, std::uint8_t mask) {
    const std::lock_guard lock{mutex_};
    for (Link& link : links_) {
        link.leftToDamage[static_cast<std::size_t>(way)] = mask == 0 ? noEnd : bytes;
        link.mask = mask;
    }
}

void Relay::drop() {
    {
        const std::lock_guard lock{mutex_};
        for (Link& link : links_) link.over = true;
    }
    wake();
}

void Relay::accept() {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    const int provider = connectTo(target_);
    if (provider < 0) {
        ::close(client);
        return;
    }
    Link link{{client, provider}};
    for (std::size_t way : {0U, 1U}) link.left[way] = std::exchange(leftOfNext_[way], noEnd);
    links_.push_back(link);
}

void Relay::pass(Link& link, Way way) {
    const auto index = static_cast<std::size_t>(way);
    if (link.left[index] == 0) {
        link.over = true;
        return;
    }
    std::array<std::uint8_t, 65536> buffer;
    const auto size = ::recv(link.ends[index], buffer.data(), std::min<std::uint64_t>(buffer.size(), link.left[index]), 0);
    if (size <= 0) {
        link.over = true;
        return;
    }
    const auto count = static_cast<std::size_t>(size);
    std::uint64_t& leftToDamage = link.leftToDamage[index];
    if (leftToDamage < count) {
        buffer[leftToDamage] ^= link.mask;
        leftToDamage = noEnd;
    } else if (leftToDamage != noEnd) {
        leftToDamage -= count;
    }
    for (std::size_t sent = 0; sent < count;) {
        const auto more = ::send(link.ends[1 - index], buffer.data() + sent, count - sent, MSG_NOSIGNAL);
        if (more <= 0) break;  // that end is gone; reading from it will report this
        sent += static_cast<std::size_t>(more);
    }
    passed_[index] += count;
    if (link.left[index] != noEnd) link.left[index] -= count;
    if (link.left[index] == 0) link.over = true;
}

void Relay::run() {
    for (;;) {
        std::vector<pollfd> waits{{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
        {
            const std::lock_guard lock{mutex_};
            for (const Link& link : links_) {
                for (const int end : link.ends) waits.push_back({end, POLLIN, 0});
            }
        }
        ::poll(waits.data(), waits.size(), -1);
        const std::lock_guard lock{mutex_};
        if (isOver_) return;
        if (waits[0].revents != 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto taken = ::read(wake_, &count, sizeof count);
        }
        for (std::size_t i = 2; i < waits.size(); ++i) {
            if (waits[i].revents == 0) continue;
            Link& link = links_[(i - 2) / 2];
            if (!link.over) pass(link, static_cast<Way>(i % 2));
        }
        if (waits[1].revents != 0) accept();
        for (const Link& link : links_) {
            if (!link.over) continue;
            for (const int end : link.ends) ::close(end);
            ++ended_;
        }
        std::erase_if(links_, [](const Link& link) { return link.over; });
    }
}

}  // namespace campaign
