#include "runtime/directory_watch.h"

#include <sys/epoll.h>
#include <sys/inotify.h>

#include <cstring>

// One inotify instance a watch: beginning anew drops whatever the old one still had to say, so that no report of a directory that
// is gone is taken for one of its successor.

namespace kelo::runtime {

bool DirectoryWatch::watch(const std::string& directory) {
    stop();
    net::Descriptor inotify{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    if (!inotify) return false;
    constexpr std::uint32_t mask =
        IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    if (::inotify_add_watch(inotify.get(), directory.c_str(), mask) < 0) return false;
    if (loop_.add(inotify.get(), EPOLLIN, shared_from_this()) == 0) return false;
    inotify_ = std::move(inotify);
    return true;
}

void DirectoryWatch::stop() {
    if (!inotify_) return;
    loop_.remove(inotify_.get());
    inotify_.reset();
}

void DirectoryWatch::onReady(std::uint32_t /*events*/) {
    alignas(inotify_event) char buffer[16 * 1024];
    const auto size = ::read(inotify_.get(), buffer, sizeof buffer);
    if (size <= 0) return;
    bool gone = false;
    for (const char* at = buffer; at < buffer + size;) {
        inotify_event event{};
        std::memcpy(&event, at, sizeof event);
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            events_.uncertain();
        } else if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
            gone = true;
        } else if (event.len > 0) {
            events_.changed(std::string_view{at + sizeof event});
        }
        at += sizeof event + event.len;
    }
    if (gone) {
        stop();
        events_.gone();
    }
}

}  // namespace kelo::runtime
