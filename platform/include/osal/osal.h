// The operating-system layer's life.
#pragma once

namespace osal {

// Constructed first in main, destroyed last: ignores SIGPIPE, so that a peer's death is an error code, and puts the file
// descriptor limit at its hard maximum. Thread: main.
class Osal {
public:
    // `raiseDescriptorLimit`: take the hard limit as the soft one. `blockSignals`: leave SIGTERM and SIGINT to a thread that
    // waits for them.
    Osal(bool raiseDescriptorLimit, bool blockSignals) noexcept;
    ~Osal() = default;
    Osal(const Osal&) = delete;
    Osal& operator=(const Osal&) = delete;
};

}  // namespace osal
