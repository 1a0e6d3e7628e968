// Main waits here, step by step, while the workers bring the services up. The events need not be kept for a later step: a service
// is tracked only after the wait for the one before it is over, so what lies in front of the event that is waited for is a
// repetition of an earlier one. Nor need an event be kept twice: each is waited for once. After start-up nobody waits any more;
// an upstream service that comes back leaves its event in the queue, one of each.
//
// The queue is guarded by its mutex alone, and the condition is bound to that by the first wait that finds the queue empty.
#include "event_queue.h"

namespace hmx {

template class CEventQueue<EEventID>;

}  // namespace hmx
