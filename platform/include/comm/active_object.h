// A worker: one thread that runs events first in, first out.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "util/shared_ptr.h"

namespace kelo::net {
class Loop;
}

namespace comm {

// Work for an ActiveObject. The same event may be queued any number of times, also while it is queued already.
class ActiveObjectEvent {
public:
    virtual ~ActiveObjectEvent() = default;
    // Thread: the worker. An exception that leaves it is logged and swallowed: the worker goes on.
    virtual void execute() = 0;
};

// A resource: owns its thread. Events run in the order of posting, never inside `enque`. Destroying it runs what is queued, then
// joins the thread; events posted while it drains run too.
// Thread: any; `runPending` on the thread that cranks.
class ActiveObject {
public:
    struct ByHand {};

    // Starts a thread that the debugger knows by the last 15 characters of what makes the name unique; `name()` is the whole.
    explicit ActiveObject(std::string name);
    // A worker without a thread, for tests: events run only inside `runPending`, and its thread is whichever cranks it.
    ActiveObject(std::string name, ByHand);
    ~ActiveObject();
    ActiveObject(const ActiveObject&) = delete;
    ActiveObject& operator=(const ActiveObject&) = delete;

    // Queues the event and wakes the thread if it sleeps. An empty pointer is ignored. Does not block.
    void enque(util::SharedPtr<ActiveObjectEvent> event);

    // The same for an event that waits for nobody and does not take long: if the thread sleeps and the caller is the runtime's,
    // then that runs it, once it has read what there was to read, rather than wake the worker. It cannot tell the difference.
    void enqueBrief(util::SharedPtr<ActiveObjectEvent> event);

    // Queues the event once that much time has passed; one whose time has not come when the worker ends is dropped.
    // Thread: the worker.
    void enqueAfter(std::chrono::milliseconds delay, util::SharedPtr<ActiveObjectEvent> event);
    // Drops what waits for its time. Thread: the worker.
    void dropLater() noexcept;

    // Runs what is queued, and what that queues, on the calling thread; the number of events run. ByHand only.
    std::size_t runPending();
    // Events queued and not yet begun.
    std::size_t pending() const;

    const std::string& name() const noexcept;
    // Whether the calling thread is the worker or stands in for it (ByHand: is inside `runPending`).
    bool isCurrentThread() const noexcept;

    // The loop that the worker sleeps in: sockets that the runtime hands to it are served between events.
    kelo::net::Loop& loop() noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace comm
