// Main waits here, step by step, while the workers attach to the services. No event has to be kept for a later step: a service is
// tracked only after the wait for the previous one is over, so events before the awaited one are repetitions. No event has to be
// kept twice, because each is waited for once. After start-up nobody waits; an upstream service that returns leaves its event in
// the queue, at most one of each.
//
// The queue is guarded by its mutex alone. The condition is bound to that mutex by the first wait that finds the queue empty.
#include "event_queue.h"

namespace hmx {

template class CEventQueue<EEventID>;

}  // namespace hmx
