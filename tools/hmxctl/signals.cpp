#include "signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "failure.h"

namespace hmxctl {

Signals::Signals(std::initializer_list<int> numbers) {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : numbers) ::sigaddset(&set, number);
    ::pthread_sigmask(SIG_BLOCK, &set, &before_);
    descriptor_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ >= 0) return;
    const std::string reason = std::strerror(errno);
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    throw Failure{ExitCode::unexpected, "signalfd: " + reason};
}

Signals::~Signals() {
    ::close(descriptor_);
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> Signals::take() const {
    signalfd_siginfo info{};
    if (::read(descriptor_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return {};
    return static_cast<int>(info.ssi_signo);
}

}  // namespace hmxctl
