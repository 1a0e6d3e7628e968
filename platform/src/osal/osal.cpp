#include "osal/osal.h"

#include <sys/resource.h>

#include <csignal>

namespace osal {

Osal::Osal(bool raiseDescriptorLimit, bool blockSignals) noexcept {
    (void)std::signal(SIGPIPE, SIG_IGN);
    if (raiseDescriptorLimit) {
        rlimit limit{};
        if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
            limit.rlim_cur = limit.rlim_max;
            (void)setrlimit(RLIMIT_NOFILE, &limit);
        }
    }
    if (blockSignals) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
}

// There is no destructor that restores the settings: threads that outlive main's objects still need them.

}  // namespace osal
