#include "runtime/directory_watch.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <cstring>

// Each watch has its own inotify instance. Restarting drops everything that the old one still had to report, so a report about a
// removed directory is never taken for one about its successor.
//
// The directory's own report of its removal comes too late: the kernel sends it when nothing refers to the directory any more,
// and every connection made through a socket in it does. So the parent directory is watched, too. It reports the removal of the
// name at once, and the name is then compared with the directory that is watched.

namespace kelo::runtime {

bool DirectoryWatch::watch(const std::string& directory, int opened, Of what) {
    stop();
    net::Descriptor inotify{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    if (!inotify) return false;
    const std::uint32_t mask = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                               (what == Of::contents ? IN_CLOSE_WRITE | IN_ATTRIB : 0U);
    const std::string place = "/proc/self/fd/" + std::to_string(opened);
    if (::inotify_add_watch(inotify.get(), place.c_str(), mask) < 0) return false;
    struct stat status {};
    if (::fstat(opened, &status) != 0) return false;
    // If the parent cannot be read, it cannot be watched either; then the directory's own report must do.
    constexpr std::uint32_t parentMask = IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF | IN_ONLYDIR;
    parentWatch_ = ::inotify_add_watch(inotify.get(), (place + "/..").c_str(), parentMask);
    if (loop_.add(inotify.get(), EPOLLIN, shared_from_this()) == 0) return false;
    inotify_ = std::move(inotify);
    directory_ = directory;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return true;
}

bool DirectoryWatch::isInPlace() const {
    struct stat status {};
    return ::lstat(directory_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
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
    bool doubtful = false;
    for (const char* at = buffer; at < buffer + size;) {
        inotify_event event{};
        std::memcpy(&event, at, sizeof event);
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            doubtful = true;
            events_.uncertain();
        } else if (event.wd == parentWatch_) {
            doubtful = true;
        } else if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
            gone = true;
        } else if (event.len > 0) {
            events_.changed(std::string_view{at + sizeof event});
        }
        at += sizeof event + event.len;
    }
    if (gone || (doubtful && inotify_ && !isInPlace())) {
        stop();
        events_.gone();
    }
}

}  // namespace kelo::runtime
