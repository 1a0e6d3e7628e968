// The limits that keep one peer from harming the others: one struct, shown by `hmxctl status`.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kelo {

// A limit marked as shared is for all clients together. Half of it is divided equally among the clients that may connect; of the
// other half, each may use at most half of what the others leave.
//
// With a policy, users have quotas of the shared limits and of the connections, too: a quarter is divided equally among `users`,
// and of the rest, each may use at most three quarters of what the others leave.
struct Limits {
    std::uint32_t frameBytes = 1U << 20U;  // the largest body of a frame, headers and payload together
    std::uint32_t nameBytes = 256;         // of the name that a peer gives itself, which is cut, and of a client id
    std::uint32_t parameters = 32;         // of one retrieve or delete
    std::size_t parameterBytes = 2048;     // of the text that restricts one list
    std::uint32_t oneShotRequests = 1024;  // in flight on one connection; cancelled ones count until they have ended
    std::uint32_t openStreams = 4096;      // on one connection; upstream: shared
    std::uint32_t openRequests = 20'480;   // of both kinds, of all clients of a process; shared
    std::uint32_t heldRequests = 16'384;   // waiting for room on one connection to another service; shared
    std::size_t heldBytes = 8U << 20U;     // the same in bytes; shared
    // Of the first answers that another service still owes; shared. An answer counts as large as the last ones were. Above this,
    // and above `conflationBytes` for one client, requests wait.
    std::size_t awaitedBytes = 2U << 20U;
    // Above this, streams keep only their newest value, and requests wait.
    std::size_t conflationBytes = 64U << 10U;           // queued for one peer
    std::size_t queuedSoftBytes = 1U << 20U;            // queued for one peer; above it, its requests are not read
    std::size_t queuedHardBytes = 4U << 20U;            // queued and kept for one peer; above it, the peer is disconnected
    std::size_t unreadBytes = 32U << 20U;               // the same, for all clients that do not read; shared
    std::size_t incompleteBytes = 32U << 20U;           // of frames that have arrived only in part; shared
    std::uint32_t connections = 256;                    // accepted by one process
    std::uint32_t reservedConnections = 8;              // in addition, for questions about the process itself (`hmxctl status`)
    std::uint32_t framesPerWakeUp = 32;                 // handled for one connection before the next one gets its turn
    std::chrono::milliseconds handshake{5'000};         // from connecting to the peer's hello
    std::chrono::milliseconds incompleteFrame{10'000};  // from a frame's first byte to its last
    std::chrono::milliseconds requestDeadline{10'000};  // from sending to the first answer, unless the caller gives another

    // With a policy:
    static constexpr std::uint32_t users = 32;        // that an equal part is kept for
    std::uint32_t userStreams = 2048;                 // open streams of all users; shared among users alone
    std::chrono::milliseconds userContention{5'000};  // after this time alone, a user does not take turns; until then, it has
    static constexpr std::uint32_t userRequestsInHand = 4;  // of one user, without an answer
    std::chrono::milliseconds userPatience{5};              // what takes longer than this is not in hand any more
    std::uint32_t userTurns = 4;                            // of one user in a millisecond
    std::uint32_t userTurnsSaved = 64;                      // that a user may take at once because it has not taken them before
    static constexpr std::uint32_t policyFiles = 256;
    static constexpr std::uint32_t policyFileBytes = 256U << 10U;  // of each of them
    static constexpr std::uint32_t policyRules = 10'000;           // combinations of user, service, command and path
};

}  // namespace kelo
