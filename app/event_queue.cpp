// Main waits here, step by step, while the workers bring the services up. The events need not be kept for a later step: a
// service is tracked only after the wait for the previous one is over, so whatever precedes the awaited event repeats an
// earlier one. Nor need an event be kept twice: each is waited for once. After start-up nobody waits any more; an upstream
// service that comes back leaves its event in the queue, at most one of each.
//
// Only its mutex guards the queue, and the condition is bound to it by the first wait that finds the queue empty.
#include "event_queue.h"

namespace hmx {

template class CEventQueue<EEventID>;

}  // namespace hmx
