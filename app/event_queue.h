// The start-up event queue: how the workers tell main that a service is there.
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

// First in, first out; one waiter. Failures of mutex and condition are recorded in the error store of the calling thread and
// survived. Thread: any for `post`, one for `waitFor`.
template <class EventId, class Mutex = osal::Mutex, class Condition = osal::Condition>
class CEventQueue {
public:
    CEventQueue() = default;
    CEventQueue(const CEventQueue&) = delete;
    CEventQueue& operator=(const CEventQueue&) = delete;

    // Drops an event whose id is in the queue already.
    void post(const CEvent& event);
    // Blocks until an event with this id is taken from the queue. Events with other ids in front of it are lost.
    void waitFor(EventId id);

    // Events posted and not yet taken.
    std::uint64_t count();

private:
    CEvent take();

    std::list<CEvent> events_;
    Mutex mutex_;
    Condition condition_;
};

template <class EventId, class Mutex, class Condition>
void CEventQueue<EventId, Mutex, Condition>::post(const CEvent& event) {
    std::list<CEvent> node{event};  // made before the lock, so that nothing can throw while it is held
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
        // Bound by the waiter: who posts before there is one has nobody to wake.
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
