// Process-wide settings of the operating system.
#pragma once

namespace osal {

// Constructed first in main. Ignores SIGPIPE, so that a write to a dead peer returns an error. The settings stay after it is
// destroyed. Thread: main.
class Osal {
public:
    // `raiseDescriptorLimit`: raises the soft limit of file descriptors to the hard limit. `blockSignals`: blocks SIGTERM and
    // SIGINT, for programs in which one thread waits for them.
    Osal(bool raiseDescriptorLimit, bool blockSignals) noexcept;
    ~Osal() = default;
    Osal(const Osal&) = delete;
    Osal& operator=(const Osal&) = delete;
};

}  // namespace osal
