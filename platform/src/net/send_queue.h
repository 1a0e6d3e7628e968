// What one connection has to send: collected by any thread, passed to the kernel by one at a time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "util/byte_buffer.h"

namespace kelo::net {

// Guarded by its connection's mutex, which `send` and `awaitSender` release while they send or wait. Thread: any.
class SendQueue {
public:
    SendQueue() = default;
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;

    // The buffer to append whole frames to.
    util::ByteBufferWriter& out() noexcept { return out_; }
    // The number of bytes that, as far as is known, the kernel has not taken.
    std::size_t size() const noexcept { return out_.size() + (sending_.size() - offset_); }

    // True after the kernel has taken less than everything, until `unblock`, to be called when it can take more.
    bool isBlocked() const noexcept { return blocked_; }
    void unblock() noexcept { blocked_ = false; }

    // Whether a thread is sending: from beginSending() to endSending().
    bool isSending() const noexcept { return isSending_; }
    void beginSending() noexcept { isSending_ = true; }
    void endSending() noexcept;
    // Waits until no thread is sending. This is short: the system call does not block.
    void awaitSender(std::unique_lock<std::mutex>& lock);

    // Sends until nothing is left (true), the kernel takes no more, or the connection is over. Call between beginSending() and
    // endSending().
    bool send(std::unique_lock<std::mutex>& lock, int fd, const bool& isOver);

    // Calls visit(id) for each request of which the kernel lacks a byte. No thread may be sending.
    template <class Visit>
    void forEachUnsentRequest(Visit visit) const {
        forEachRequest(sending_, offset_, [&](const QueuedRequest& found) { visit(found.id); });
        forEachRequest(out_, 0, [&](const QueuedRequest& found) { visit(found.id); });
    }
    // Removes each request for which isMeant(id) is true and of which the kernel has no byte. No thread may be sending.
    template <class IsMeant>
    void withdraw(IsMeant isMeant) {
        const auto withdrawFrom = [&](util::ByteBufferWriter& buffer, std::size_t begin) {
            forEachRequest(buffer, begin, [&](QueuedRequest& found) {
                if (found.at < begin || !isMeant(found.id)) return;
                buffer.erase(found.at, found.size);
                found.size = 0;
            });
        };
        withdrawFrom(sending_, offset_);
        withdrawFrom(out_, 0);
    }

    // Frees memory that a burst needed, if it is more than `kept`.
    void shrink(std::size_t kept);
    // Discards everything. No thread may be sending.
    void clear();

private:
    // A request's frame in a buffer.
    struct QueuedRequest {
        std::uint64_t id;
        std::size_t at;
        std::size_t size;  // 0: it has been removed
    };
    // Finds the next request that has a byte at or after `begin`. `at`: where to start, at the beginning of a frame.
    static bool findRequest(const util::ByteBufferWriter& buffer, std::size_t at, std::size_t begin,
                            QueuedRequest& found) noexcept;
    template <class Visit>
    static void forEachRequest(const util::ByteBufferWriter& buffer, std::size_t begin, Visit visit) {
        QueuedRequest found{};
        for (std::size_t at = 0; findRequest(buffer, at, begin, found); at = found.at + found.size) visit(found);
    }

    util::ByteBufferWriter out_;      // appended, not being sent yet
    util::ByteBufferWriter sending_;  // being sent, from offset_
    std::size_t offset_ = 0;
    bool isSending_ = false;
    bool blocked_ = false;
    std::condition_variable sendIsOver_;
    std::size_t awaiting_ = 0;  // threads in awaitSender
};

}  // namespace kelo::net
