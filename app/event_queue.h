// The start-up event queue: the workers use it to tell main that a service is available.
#pragma once

#include <algorithm>
#include <cstdint>
#include <list>
#include <string>

#include "kelo/payload.h"
#include "osal/condition.h"
#include "osal/mutex.h"

namespace hmx {

enum EEventID : std::uint32_t {
    EVENT_HMX_RSI_AVAILABLE = 7,  // "/hmx" is registered and clients can reach it
    EVENT_DM_AVAILABLE = 12,      // the display-side bridges have their API
    EVENT_INPUT_AVAILABLE = 13,   // the input bridge has its API
    EVENT_POPUP_AVAILABLE = 14,   // the popup bridge has its API
};

// Thread: any (a value).
struct CEvent {
    EEventID id{};
    std::string text{};
    kelo::Payload payload{};
    bool flag = false;
    std::uint64_t value = 0;
};

// First in, first out; one waiter. Failures of the mutex or the condition are recorded in the calling thread's error store; the
// operation continues. Thread: any for `post`, one for `waitFor`.
template <class EventId, class Mutex = osal::Mutex, class Condition = osal::Condition>
class CEventQueue {
public:
    CEventQueue() = default;
    CEventQueue(const CEventQueue&) = delete;
    CEventQueue& operator=(const CEventQueue&) = delete;

    // Does nothing if an event with the same id is in the queue.
    void post(const CEvent& event);
    // Blocks until an event with this id has been taken from the queue. Events with other ids before it are discarded.
    void waitFor(EventId id);

    // The number of events in the queue.
    std::uint64_t count();

private:
    CEvent take();

    std::list<CEvent> events_;
    Mutex mutex_;
    Condition condition_;
};

template <class EventId, class Mutex, class Condition>
void CEventQueue<EventId, Mutex, Condition>::post(const CEvent& event) {
    std::list<CEvent> node{event};  // allocated before the lock, so that nothing can throw while it is held
    mutex_.lock();
    const auto isSame = [&event](const CEvent& queued) { return queued.id == event.id; };
    if (std::none_of(events_.begin(), events_.end(), isSame)) events_.splice(events_.end(), node);
    if (condition_.isBound()) condition_.signal();
    mutex_.unlock();
}

template <class EventId, class Mutex, class Condition>
void CEventQueue<EventId, Mutex, Condition>::waitFor(EventId id) {
    while (take().id != id) {
    }
}

template <class EventId, class Mutex, class Condition>
CEvent CEventQueue<EventId, Mutex, Condition>::take() {
    std::list<CEvent> head;
    mutex_.lock();
    while (events_.empty()) {
        // The waiter binds the condition: without a waiter, `post` has nobody to wake.
        if (!condition_.bind(mutex_)) condition_.wait();
    }
    head.splice(head.end(), events_, events_.begin());
    mutex_.unlock();
    return std::move(head.front());
}

template <class EventId, class Mutex, class Condition>
std::uint64_t CEventQueue<EventId, Mutex, Condition>::count() {
    mutex_.lock();
    const std::uint64_t result = events_.size();
    mutex_.unlock();
    return result;
}

extern template class CEventQueue<EEventID>;

}  // namespace hmx
