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

// Work for an ActiveObject. The same event may be queued any number of times, even while it is already queued.
class ActiveObjectEvent {
public:
    virtual ~ActiveObjectEvent() = default;
    // Thread: the worker. An exception is logged and swallowed; the worker continues.
    virtual void execute() = 0;
};

// A resource: owns its thread. Events run in the order in which they were posted, never inside `enque`. The destructor runs what
// is queued, including events that are posted meanwhile, and then joins the thread. Thread: any; `runPending` on the thread that
// cranks the worker.
class ActiveObject {
public:
    struct ByHand {};

    // Starts a thread. The kernel keeps only 15 characters of a thread's name: of a longer one, the first 15 after its last dot.
    // `name()` returns all of it.
    explicit ActiveObject(std::string name);
    // A worker without a thread, for tests: events run only inside `runPending`, on the thread that calls it.
    ActiveObject(std::string name, ByHand);
    ~ActiveObject();
    ActiveObject(const ActiveObject&) = delete;
    ActiveObject& operator=(const ActiveObject&) = delete;

    // Queues the event and wakes the thread if it sleeps. An empty pointer is ignored. Does not block.
    void enque(util::SharedPtr<ActiveObjectEvent> event);

    // Like `enque`, for an event that is short and does not block. If the worker sleeps and the caller is the runtime's thread,
    // that thread runs the event itself, after it has read its input, instead of waking the worker. The event cannot tell the
    // difference.
    void enqueBrief(util::SharedPtr<ActiveObjectEvent> event);

    // Queues the event after the delay. Events that are not due when the worker ends are dropped. Thread: the worker.
    void enqueAfter(std::chrono::milliseconds delay, util::SharedPtr<ActiveObjectEvent> event);
    // Drops the events that are not due yet. Thread: the worker.
    void dropLater() noexcept;

    // Runs what is queued, and what that queues, on the calling thread. Returns the number of events run. ByHand only.
    std::size_t runPending();
    // Events that are queued and have not started.
    std::size_t pending() const;

    const std::string& name() const noexcept;
    // Whether the calling thread is the worker or is running its events in its place (ByHand: is inside `runPending`).
    bool isCurrentThread() const noexcept;

    // The loop that the worker sleeps in. Between events it serves the sockets that the runtime assigns to it.
    kelo::net::Loop& loop() noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace comm
