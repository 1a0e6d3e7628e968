// What a runtime has counted since its start, for `hmxctl status` and for tests.
#pragma once

#include <atomic>
#include <cstdint>

namespace kelo::runtime {

// Thread: any. Each is a counter of its own; there is no common snapshot.
struct Counters {
    using Count = std::atomic<std::uint64_t>;

    Count requestsAccepted{0};   // by this process's services
    Count requestsSent{0};       // to other services
    Count requestsHeld{0};       // that had to wait for room on their connection
    Count requestsRefused{0};    // because of a limit
    Count requestsForbidden{0};  // by the policy; also streams that it ended
    Count requestsAudited{0};    // that the policy would forbid, if it did not only audit
    Count answeredByNobody{0};   // responders destroyed without an answer
    Count deadlinesMissed{0};    // 504
    Count endedByLoss{0};        // 503 for a lost connection
    Count cancelled{0};          // by clients, or because clients are gone
    Count lateFrames{0};         // for a request that is over or never was
    Count valuesConflated{0};    // replaced by a newer value before a slow peer read them
    Count answersRefused{0};     // to slow peers, for lack of room
    Count malformedPeers{0};     // connections ended because of what was sent
    Count slowPeersCut{0};       // connections ended because of what was not read
    Count peersRefused{0};       // because of the user, the number of connections, or a bad hello
    Count peersAudited{0};       // that the policy would refuse, if it did not only audit
    Count acceptPauses{0};       // for lack of file descriptors
    Count connectionsAccepted{0};
    Count connectionsOpen{0};
};

}  // namespace kelo::runtime
