// The bounds that keep one peer from hurting the others: one struct, shown by `hmxctl status`.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kelo {

// Those marked as shared are for all clients together: half is divided equally among as many as may connect, and of the other
// half each may have at most half of what the others leave.
struct Limits {
    std::uint32_t frameBytes = 1U << 20U;  // the largest body of a frame, headers and payload together
    std::uint32_t nameBytes = 256;         // of a peer's name for itself, which is cut, and of a client id
    std::uint32_t parameters = 32;         // of one retrieve or delete
    std::size_t parameterBytes = 2048;     // of the text by which one list is restricted
    std::uint32_t oneShotRequests = 1024;  // in flight on one connection; cancelled but unfinished ones count
    std::uint32_t openStreams = 4096;      // on one connection; upstream: shared
    std::uint32_t openRequests = 20'480;   // of both kinds, of a process's clients; shared
    std::uint32_t heldRequests = 16'384;   // that wait for room on one connection to another service; shared
    std::size_t heldBytes = 8U << 20U;     // the same, in bytes; shared
    // Of the first answers that one other service still owes, each as large as the last ones were; shared. Beyond it, and beyond
    // `conflationBytes` for one client, requests wait.
    std::size_t awaitedBytes = 2U << 20U;
    // Beyond it streams keep only their newest value, and requests wait.
    std::size_t conflationBytes = 64U << 10U;           // queued to one peer
    std::size_t queuedSoftBytes = 1U << 20U;            // queued to one peer before its requests are no longer read
    std::size_t queuedHardBytes = 4U << 20U;            // the same, with what is kept for it, before it is cut
    std::size_t unreadBytes = 32U << 20U;               // the same, of all clients that do not read; shared
    std::size_t incompleteBytes = 32U << 20U;           // of frames of which the rest has not come; shared
    std::uint32_t connections = 256;                    // accepted by one process
    std::uint32_t reservedConnections = 8;              // in addition, for questions about the process itself
    std::uint32_t framesPerWakeUp = 32;                 // handled for one connection before the next one's turn
    std::chrono::milliseconds handshake{5'000};         // from connecting to the peer's hello
    std::chrono::milliseconds incompleteFrame{10'000};  // from a frame's first byte to its last
    std::chrono::milliseconds requestDeadline{10'000};  // from sending to the first answer, unless the caller says otherwise
};

}  // namespace kelo
