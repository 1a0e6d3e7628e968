// What a runtime has counted since it began, for `hmxctl status` and for tests.
#pragma once

#include <atomic>
#include <cstdint>

namespace kelo::runtime {

// Thread: any. Each is a plain count; they are read without a common moment.
struct Counters {
    using Count = std::atomic<std::uint64_t>;

    Count requestsAccepted{0};  // by this process's services
    Count requestsSent{0};      // to other services
    Count requestsHeld{0};      // until there was room for them on their connection
    Count requestsRefused{0};   // over a limit of requests
    Count answeredByNobody{0};  // responders destroyed without an answer
    Count deadlinesMissed{0};   // 504
    Count endedByLoss{0};       // 503 for a lost connection
    Count cancelled{0};         // by clients, or by their going away
    Count lateFrames{0};        // for a request that is over or never was
    Count valuesConflated{0};   // replaced by a newer one before a slow peer read them
    Count answersRefused{0};    // for a slow peer, for want of room
    Count malformedPeers{0};    // connections ended for what they sent
    Count slowPeersCut{0};      // connections ended for what they did not read
    Count peersRefused{0};      // by uid, number of connections, or a bad hello
    Count acceptPauses{0};      // for want of file descriptors
    Count connectionsAccepted{0};
    Count connectionsOpen{0};
};

}  // namespace kelo::runtime
