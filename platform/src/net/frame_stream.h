// A connection that carries frames: written from any thread, with gathered output, and read on one loop.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/limits.h"
#include "net/descriptor.h"
#include "net/fair_share.h"
#include "net/loop.h"
#include "net/reading_place.h"
#include "net/send_queue.h"
#include "net/turns.h"
#include "policy/identity.h"
#include "runtime/counters.h"
#include "util/byte_buffer.h"
#include "wire/frame.h"

namespace kelo::net {

// The process at the other end: who it is, from the kernel, taken when the connection was made, and the name that it gives
// itself.
struct Peer {
    pid_t pid = 0;
    policy::Identity who;
    std::string program;  // of a client; see policy::programOf
    std::string application;

    // Whether it belongs to our own user or to root, who are served and trusted unless a policy says otherwise.
    bool isOwnOrRoot() const noexcept;

    // "pid 4711 (hmxctl)", for log lines.
    std::string toString() const;
};

// The credentials of the process at the other end of a connected socket. False if the kernel has none.
bool readPeer(int fd, Peer& peer) noexcept;

// A resource; the base of both roles of a connection. Derived classes guard their own tables with `mutex_` too, so that the
// meaning of a frame and the output about it are one critical section. Thread: any for `flush`, `moveTo`, `end`, `awaitSettled`
// and the writing members; the loop's for reading, `start` and `close`.
class FrameStream : public Pollable, public Flushable, public std::enable_shared_from_this<FrameStream> {
public:
    FrameStream(const FrameStream&) = delete;
    FrameStream& operator=(const FrameStream&) = delete;

    // Registers with the calling thread's loop and starts reading. False if the system has no room.
    bool start(Loop& loop);
    // Has the connection read on another loop, which must exist until the connection has moved on; received bytes go along.
    void moveTo(Loop& loop);
    // Ends the connection: nothing more is read. `handleClosed` is called before this returns. Further calls do nothing.
    void close(const char* why) noexcept;
    // Has the loop that reads close the connection: at once if this is its thread.
    void end(const char* why);
    // Waits until the connection is read where it was last wanted or, if it was to end, is over. Must not be called on a thread
    // that the reading loop may be waiting for.
    void awaitSettled();
    // Whether the connection is over and nothing more will happen.
    bool isOver() const;
    // Makes the loop see the end of the connection, after what was received before. Thread: any.
    void shutDown() noexcept;
    // Writes what is queued. Loops call it at the end of a drain.
    void flush() final;
    void onReady(std::uint32_t events) final;

    const Peer& peer() const noexcept { return peer_; }
    // Handles frames that had to wait for their user's turn. Thread: the loop's.
    void goOn();

protected:
    // `shares`: where a client is charged for what it leaves unread; null if the peer is not a client.
    FrameStream(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters, std::shared_ptr<Shares> shares);
    ~FrameStream() override;

    // Handles one frame. Null if it was in order, else what is wrong, which ends the connection. Thread: the loop's, no lock
    // held.
    virtual const char* handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) = 0;
    // The connection is over, and everything that was received before has been handled. Thread: the loop's, no lock held.
    virtual void handleClosed(const char* why) = 0;
    // The peer will not send anything more, but may still read. Returns true to continue until `owesNothingLocked`, false to
    // close at once. Thread: the loop's, no lock held.
    virtual bool handleInputEnded() { return false; }
    virtual bool owesNothingLocked() const { return true; }
    // Reading is about to leave this thread's loop (the lock is held), or has arrived at this thread's loop.
    virtual void handleLeavingLocked() {}
    virtual void handleArrived() {}
    // Whether a peer that leaves too much unread is not read from.
    virtual bool pausesReading() const noexcept = 0;
    // The queue has drained so far that the peer no longer counts as slow. The lock is held; may append.
    virtual void handleDrainedLocked() {}

    // The buffer to append frames to. After appending, release the lock and call `commit`.
    util::ByteBufferWriter& outLocked() noexcept { return queue_.out(); }
    // Has the appended frames written: on a loop's thread at the end of the loop's drain, on any other thread at once. `isMuch`:
    // so much is queued that it must be sent now.
    void commit(bool isMuch = false);
    bool isMuchLocked() const noexcept { return unreadLocked() > limits_.queuedSoftBytes; }
    std::size_t queuedLocked() const noexcept { return queue_.size(); }
    std::size_t unreadLocked() const noexcept { return queuedLocked() + keptBytes_; }
    // Whether there is room for more than small answers. Otherwise, what was kept or appended must be removed.
    bool admitsUnreadLocked() const noexcept;
    bool isClosedLocked() const noexcept { return closed_ || cut_; }
    // The queue while no thread is sending: what it no longer has is with the kernel. Releases the lock if it has to wait.
    SendQueue& settledQueueLocked(std::unique_lock<std::mutex>& lock) {
        queue_.awaitSender(lock);
        return queue_;
    }
    bool isSlowLocked() const noexcept { return queuedLocked() > limits_.conflationBytes; }
    // Sets the peer's name for itself, which appears in log lines and names its requests; cut to the limit.
    void nameLocked(std::string_view application);
    // The loop that reads. Thread: that loop's, or any with the lock held.
    Loop& loop() noexcept { return place_.loop(); }
    // From now on, the peer is charged to a user, and takes turns with other users; null: neither. Thread: the loop's.
    void setUserLocked(std::shared_ptr<User> user, Turns* turns);
    // A request that the user had in hand has been answered.
    void putDownLocked();

    mutable std::mutex mutex_;
    const Limits limits_;
    runtime::Counters& counters_;
    Peer peer_;
    const std::shared_ptr<Shares> shares_;
    std::size_t keptBytes_ = 0;   // not in the queue, but kept for the peer; guarded by mutex_
    std::shared_ptr<User> user_;  // null: users have no quotas; guarded by mutex_, and changed only on the loop's thread
    Turns* turns_ = nullptr;      // only for the loop's thread

private:
    void serve(std::uint32_t events);
    void receive(bool isHungUp);
    void follow() noexcept;
    void leaveLocked();
    void arrive() noexcept;
    // Handles the whole frames in `bytes`, at most `limits_.framesPerWakeUp` unless `all`. Returns the number of bytes consumed.
    std::size_t handleFrames(std::span<const std::uint8_t> bytes, bool all);
    void handleCarried(bool all);
    void handleRest() noexcept;
    void giveUp(const std::exception& error) noexcept;
    void boundIncomplete();
    void resumeLaterLocked();
    bool isTheirTurn(std::uint32_t turns);
    SharedLimit::Amount* unreadOfUser() const noexcept { return user_ ? &user_->unread : nullptr; }
    SharedLimit::Amount* incompleteOfUser() const noexcept { return user_ ? &user_->incomplete : nullptr; }
    void sendQueuedLocked(std::unique_lock<std::mutex>& lock);
    bool drainLocked() noexcept;
    void boundLocked();
    bool leavesTooMuchLocked();
    void watchLocked();
    std::uint32_t wantedEventsLocked() const noexcept;

    const Descriptor socket_;
    ReadingPlace place_;
    bool isHandling_ = false;  // frames are being handled; this and the next three only for the loop's thread
    bool hasHandled_ = false;  // a frame since the last check of incomplete frames
    std::size_t incompleteBytes_ = 0;
    bool waits_ = false;  // for its user's turn, and is not read
    std::optional<Timer> incomplete_;

    // Guarded by mutex_:
    SendQueue queue_;
    std::condition_variable changed_;   // the loop was left, or the connection is over
    std::size_t charged_ = 0;           // for what the peer leaves unread
    std::atomic<bool> paused_ = false;  // not reading; written with the mutex held
    bool closed_ = false;               // written only by the loop's thread
    bool cut_ = false;
    bool over_ = false;                // closed, and everybody has been told
    bool inputEnded_ = false;          // the peer sends nothing more, but is still owed something
    const char* endWanted_ = nullptr;  // the reason, once somebody wants it closed
};

}  // namespace kelo::net
