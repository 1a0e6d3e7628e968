// What one connection has to send: gathered by any thread, handed to the kernel by one at a time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "util/byte_buffer.h"

namespace kelo::net {

// Guarded by its connection's mutex, which `send` and `awaitSender` let go of meanwhile. Thread: any.
class SendQueue {
public:
    SendQueue() = default;
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;

    // The buffer to append whole frames to.
    util::ByteBufferWriter& out() noexcept { return out_; }
    // Bytes that the kernel has not taken, as far as is known.
    std::size_t size() const noexcept { return out_.size() + (sending_.size() - offset_); }
    // Bytes appended since the connection began, and those of them that the kernel took.
    std::uint64_t appended() const noexcept { return taken_ + size(); }
    std::uint64_t taken() const noexcept { return taken_; }

    // The kernel took less than all; until `unblock`, which is for when it can take more.
    bool isBlocked() const noexcept { return blocked_; }
    void unblock() noexcept { blocked_ = false; }

    // A thread is in `send`, or between two calls of it.
    bool isSending() const noexcept { return isSending_; }
    void beginSending() noexcept { isSending_ = true; }
    void endSending() noexcept;
    // Waits until no thread is sending. Nobody waits long: the system call does not block.
    void awaitSender(std::unique_lock<std::mutex>& lock);

    // Sends until nothing is left (true), the kernel takes no more, or the connection is over. Between begin- and endSending.
    bool send(std::unique_lock<std::mutex>& lock, int fd, const bool& isOver);

    // Gives memory back that one burst made large; `kept`: what is not worth it.
    void shrink(std::size_t kept);

private:
    util::ByteBufferWriter out_;      // appended, not yet being sent
    util::ByteBufferWriter sending_;  // being sent, from offset_
    std::size_t offset_ = 0;
    std::uint64_t taken_ = 0;
    bool isSending_ = false;
    bool blocked_ = false;
    std::condition_variable sendIsOver_;
};

}  // namespace kelo::net
