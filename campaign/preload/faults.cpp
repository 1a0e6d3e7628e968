// Preloaded between a program and the C library (LD_PRELOAD), so that the released programs can be brought into rare situations:
// a call fails, does less than it was asked to, or meanwhile the process dies, is stopped or loses its peer.
//
// Nothing here may allocate or call anything that allocates, because it runs inside malloc. So system calls are made directly.
#include "preload/fault_page.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <ctime>

extern "C" {
// The C library's own functions, which those below replace.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}

namespace {

using campaign::Action;
using campaign::Call;
using campaign::FaultPage;

FaultPage* page = nullptr;

[[gnu::constructor]] void findPage() {
    const char* const file = std::getenv(campaign::faultPageVariable);
    if (file == nullptr) return;
    const auto fd = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC));
    if (fd < 0) return;
    void* const memory = ::mmap(nullptr, sizeof(FaultPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::syscall(SYS_close, fd);
    if (memory != MAP_FAILED) page = static_cast<FaultPage*>(memory);
}

// What to do with this call.
Action decide(Call call, int& error) noexcept {
    if (page == nullptr) return Action::none;
    auto& rule = page->rules[static_cast<std::size_t>(call)];
    const std::uint64_t number = ++rule.calls;
    const std::uint64_t from = rule.from;
    const std::uint64_t every = std::max<std::uint64_t>(rule.every, 1);
    if (number < from || (number - from) % every != 0 || (number - from) / every >= rule.times) return Action::none;
    ++page->hits;
    error = rule.error;
    return rule.action;
}

void raise(int signal) noexcept {
    ::syscall(SYS_kill, ::syscall(SYS_getpid), signal);
}

// Replaces this socket with one that has no peer, and closes the original. Its peer sees a reset if anything that it sent has not
// been read, otherwise the end of the stream.
void cutOff(int fd) noexcept {
    int pair[2];
    if (::syscall(SYS_socketpair, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) != 0) return;
    ::syscall(SYS_dup3, pair[0], fd, O_CLOEXEC);
    ::syscall(SYS_close, pair[0]);
    ::syscall(SYS_close, pair[1]);
}

constexpr int noSocket = -1;

// Makes the call, unless it is to fail. make(true) transfers as little as possible.
template <class Make>
long through(Call call, int fd, Make make) noexcept {
    int error = 0;
    const Action action = decide(call, error);
    switch (action) {
        case Action::fail:
            errno = error;
            return -1;
        case Action::kill:
            raise(SIGKILL);
            break;
        case Action::stop:
            raise(SIGSTOP);
            break;
        case Action::reset:
            if (fd != noSocket) cutOff(fd);
            break;
        default:
            break;
    }
    const long result = make(action == Action::shorten);
    const int outcome = errno;
    if (action == Action::killAfter) raise(SIGKILL);
    if (action == Action::stopAfter) raise(SIGSTOP);
    errno = outcome;
    return result;
}

std::size_t lengthOf(std::size_t size, bool isShort) noexcept {
    return isShort ? std::min<std::size_t>(size, 1) : size;
}

bool isRefused() noexcept {
    int error = 0;
    if (decide(Call::allocate, error) != Action::fail) return false;
    errno = ENOMEM;
    return true;
}

int openFile(int directory, const char* path, int flags, unsigned mode) noexcept {
    return static_cast<int>(
        through(Call::open, noSocket, [&](bool) { return ::syscall(SYS_openat, directory, path, flags, mode); }));
}

// If a file is created, its mode follows the flags.
unsigned modeOf(int flags, std::va_list arguments) noexcept {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0;
}

}  // namespace

extern "C" {

int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
    return static_cast<int>(
        through(Call::accept, noSocket, [&](bool) { return ::syscall(SYS_accept4, fd, address, size, flags); }));
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
    return static_cast<int>(through(Call::bind, noSocket, [&](bool) { return ::syscall(SYS_bind, fd, address, size); }));
}

int connect(int fd, const sockaddr* address, socklen_t size) {
    return static_cast<int>(through(Call::connect, noSocket, [&](bool) { return ::syscall(SYS_connect, fd, address, size); }));
}

int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    // Only adding needs memory and can fail.
    if (operation != EPOLL_CTL_ADD) return static_cast<int>(::syscall(SYS_epoll_ctl, epoll, operation, fd, event));
    return static_cast<int>(
        through(Call::epollControl, noSocket, [&](bool) { return ::syscall(SYS_epoll_ctl, epoll, operation, fd, event); }));
}

int epoll_wait(int epoll, epoll_event* events, int most, int timeout) {
    return static_cast<int>(through(Call::epollWait, noSocket, [&](bool isShort) {
        return ::syscall(SYS_epoll_pwait, epoll, events, isShort ? 1 : most, timeout, nullptr, 8);
    }));
}

int mkdir(const char* path, mode_t mode) noexcept {
    return ::mkdirat(AT_FDCWD, path, mode);
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept {
    return static_cast<int>(
        through(Call::makeDirectory, noSocket, [&](bool) { return ::syscall(SYS_mkdirat, directory, path, mode); }));
}

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeOf(flags, arguments);
    va_end(arguments);
    return openFile(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeOf(flags, arguments);
    va_end(arguments);
    return openFile(directory, path, flags, mode);
}

ssize_t recv(int fd, void* buffer, std::size_t size, int flags) {
    return through(Call::receive, fd, [&](bool isShort) {
        return ::syscall(SYS_recvfrom, fd, buffer, lengthOf(size, isShort), flags, nullptr, nullptr);
    });
}

int rename(const char* from, const char* to) noexcept {
    return ::renameat(AT_FDCWD, from, AT_FDCWD, to);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
    return static_cast<int>(
        through(Call::rename, noSocket, [&](bool) { return ::syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, 0); }));
}

ssize_t send(int fd, const void* bytes, std::size_t size, int flags) {
    return through(Call::send, fd,
                   [&](bool isShort) { return ::syscall(SYS_sendto, fd, bytes, lengthOf(size, isShort), flags, nullptr, 0); });
}

int socket(int domain, int type, int protocol) noexcept {
    return static_cast<int>(through(Call::socket, noSocket, [&](bool) { return ::syscall(SYS_socket, domain, type, protocol); }));
}

int unlink(const char* path) noexcept {
    return ::unlinkat(AT_FDCWD, path, 0);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    return static_cast<int>(
        through(Call::unlink, noSocket, [&](bool) { return ::syscall(SYS_unlinkat, directory, path, flags); }));
}

void* malloc(std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_memalign(alignment, size);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock == CLOCK_REALTIME && page != nullptr) time->tv_sec += page->clockOffset;
    return result;
}

int gettimeofday(timeval* time, void*) noexcept {
    timespec precise{};
    const int result = clock_gettime(CLOCK_REALTIME, &precise);
    *time = {precise.tv_sec, precise.tv_nsec / 1000};
    return result;
}

time_t time(time_t* to) noexcept {
    timespec precise{};
    clock_gettime(CLOCK_REALTIME, &precise);
    if (to != nullptr) *to = precise.tv_sec;
    return precise.tv_sec;
}

}  // extern "C"
