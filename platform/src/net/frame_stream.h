// A connection that carries frames: gathered writing from any thread, reading on one loop.
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
#include "runtime/counters.h"
#include "util/byte_buffer.h"
#include "wire/frame.h"

namespace kelo::net {

// Who is at the other end: the ids as the kernel gave them when the connection was made, the name as it says itself.
struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
    std::string application;

    // "pid 4711 (hmxctl)", for log lines.
    std::string toString() const;
};

// The credentials of the process at the other end of a connected socket. False when the kernel has none.
bool readPeer(int fd, Peer& peer) noexcept;

// A resource; the base of both roles of a connection. Derived classes guard their own tables with `mutex_` too, so that what a
// frame means and what is written about it happen in one section. Thread: any for `flush`, `moveTo`, `end`, `awaitSettled` and
// the writing members; reading, `start` and `close` on the loop's.
class FrameStream : public Pollable, public Flushable, public std::enable_shared_from_this<FrameStream> {
public:
    FrameStream(const FrameStream&) = delete;
    FrameStream& operator=(const FrameStream&) = delete;

    // Registers with the calling thread's loop and begins to read. False when the system has no room.
    bool start(Loop& loop);
    // Has the connection read on another loop, which outlives that or the next wish; what has been received goes with it.
    void moveTo(Loop& loop);
    // Ends the connection: nothing further is read. `handleClosed` is called before this returns. Later calls do nothing.
    void close(const char* why) noexcept;
    // Has the loop that reads close the connection: at once if the calling thread is that one's.
    void end(const char* why);
    // Waits until the connection is read where it was last wanted, or is over if it was to end. Not on a thread for which the
    // loop that reads might be waiting.
    void awaitSettled();
    // Whether nothing more comes of it.
    bool isOver() const;
    // Has the loop find the connection ended, after what was received before. Thread: any.
    void shutDown() noexcept;
    // Writes what is queued; on a loop's thread, loops call it at the end of a drain.
    void flush() final;
    void onReady(std::uint32_t events) final;

    const Peer& peer() const noexcept { return peer_; }

protected:
    // `shares`: where a client is charged for what it leaves unread; null for a peer that is none.
    FrameStream(Descriptor socket, Peer peer, const Limits& limits, runtime::Counters& counters, std::shared_ptr<Shares> shares);
    ~FrameStream() override;

    // One frame; null when it was in order, else what is wrong, which ends the connection. Thread: the loop's, no lock held.
    virtual const char* handleFrame(const wire::FrameHeader& header, std::span<const std::uint8_t> body) = 0;
    // The connection is over, and everything that was received before has been handled. Thread: the loop's, no lock held.
    virtual void handleClosed(const char* why) = 0;
    // The peer will say nothing more but may still read. True to go on until `owesNothingLocked`, false to close at once. Thread:
    // the loop's, no lock held.
    virtual bool handleInputEnded() { return false; }
    virtual bool owesNothingLocked() const { return true; }
    // Reading is about to leave this thread's loop (with the lock held), and has arrived at this thread's.
    virtual void handleLeavingLocked() {}
    virtual void handleArrived() {}
    // Whether a peer that leaves too much unread is itself no longer read.
    virtual bool pausesReading() const noexcept = 0;
    // The queue has drained below what made the peer count as slow. Called with the lock held; may append.
    virtual void handleDrainedLocked() {}

    // The buffer to append frames to; after appending, and with the lock released, call `commit`.
    util::ByteBufferWriter& outLocked() noexcept { return queue_.out(); }
    // Sees to it that what was appended is written: at the end of the loop's drain on a loop's thread, at once on another.
    // `isMuch`: so much is queued that it must not become more before the kernel has been asked.
    void commit(bool isMuch = false);
    bool isMuchLocked() const noexcept { return unreadLocked() > limits_.queuedSoftBytes; }
    std::size_t queuedLocked() const noexcept { return queue_.size(); }
    std::size_t unreadLocked() const noexcept { return queuedLocked() + keptBytes_; }
    // Whether there is room for more than small answers. What is beyond it must not stay.
    bool admitsUnreadLocked() const noexcept;
    bool isClosedLocked() const noexcept { return closed_ || cut_; }
    // The queue with no thread sending: what it does not have any more is with the kernel. Lets go of the lock if it has to wait.
    SendQueue& settledQueueLocked(std::unique_lock<std::mutex>& lock) {
        queue_.awaitSender(lock);
        return queue_;
    }
    bool isSlowLocked() const noexcept { return queuedLocked() > limits_.conflationBytes; }
    // What the peer calls itself, which goes into log lines and names its requests: cut to what is kept.
    void nameLocked(std::string_view application);
    // The loop that reads. Thread: that loop's, or any with the lock held.
    Loop& loop() noexcept { return place_.loop(); }

    mutable std::mutex mutex_;
    const Limits limits_;
    runtime::Counters& counters_;
    Peer peer_;
    const std::shared_ptr<Shares> shares_;
    std::size_t keptBytes_ = 0;  // beside the queue, for the peer to read; guarded by mutex_

private:
    void serve(std::uint32_t events);
    void receive(bool isHungUp);
    void follow() noexcept;
    void leaveLocked();
    void arrive() noexcept;
    // Handles the whole frames in `bytes`, at most `limits_.framesPerWakeUp` unless `all`; the bytes consumed.
    std::size_t handleFrames(std::span<const std::uint8_t> bytes, bool all);
    void handleCarried(bool all);
    void boundIncomplete();
    void resumeLaterLocked();
    void sendQueuedLocked(std::unique_lock<std::mutex>& lock);
    bool drainLocked() noexcept;
    void boundLocked();
    bool leavesTooMuchLocked();
    void watchLocked();
    std::uint32_t wantedEventsLocked() const noexcept;

    const Descriptor socket_;
    ReadingPlace place_;
    bool isHandling_ = false;  // frames, just now; of the loop's thread alone, as the next three
    bool hasHandled_ = false;  // a frame since the last look at what is incomplete
    std::size_t incompleteBytes_ = 0;
    std::optional<Timer> incomplete_;

    // Guarded by mutex_:
    SendQueue queue_;
    std::condition_variable changed_;   // the loop was left, or the connection is over
    std::size_t charged_ = 0;           // of what the peer leaves unread
    std::atomic<bool> paused_ = false;  // not reading; written with the mutex held
    bool closed_ = false;               // written by the loop's thread alone
    bool cut_ = false;
    bool over_ = false;                // closed, and everybody has been told
    bool inputEnded_ = false;          // the peer says nothing more, but is still owed something
    const char* endWanted_ = nullptr;  // why, once somebody wants it to be closed
};

}  // namespace kelo::net
