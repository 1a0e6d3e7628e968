#include "osal/signal_queue.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace osal {

SignalQueue::SignalQueue(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    (void)pthread_sigmask(SIG_BLOCK, &set, &before_);
    descriptor_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ >= 0) return;
    const int error = errno;
    (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    throw std::system_error{error, std::generic_category(), "signalfd"};
}

SignalQueue::~SignalQueue() {
    (void)::close(descriptor_);
    (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> SignalQueue::take() const noexcept {
    signalfd_siginfo info{};
    if (::read(descriptor_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return {};
    return static_cast<int>(info.ssi_signo);
}

}  // namespace osal
