// The bounds that keep one peer from hurting the others: one struct, shown by `hmxctl status`.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kelo {

struct Limits {
    std::uint32_t frameBytes = 1U << 20U;               // the largest body of a frame, headers and payload together
    std::uint32_t oneShotRequests = 1024;               // in flight on one connection, cancelled but unfinished ones included
    std::uint32_t heldRequests = 16'384;                // one-shot, of all our clients, that wait for room on one connection
    std::uint32_t openStreams = 4096;                   // on one connection; the bridge carries all its clients over one
    std::uint32_t parameters = 32;                      // of one retrieve or delete
    std::size_t parameterBytes = 2048;                  // of the text by which one list is restricted
    std::size_t queuedSoftBytes = 1U << 20U;            // queued to one peer before its requests are no longer read
    std::size_t queuedHardBytes = 4U << 20U;            // queued to one peer before it is cut
    std::uint32_t connections = 256;                    // accepted by one process
    std::uint32_t framesPerWakeUp = 32;                 // handled for one connection before the next one's turn
    std::chrono::milliseconds handshake{5'000};         // from connecting to the peer's hello
    std::chrono::milliseconds requestDeadline{10'000};  // from sending to the first answer, unless the caller says otherwise
};

}  // namespace kelo
