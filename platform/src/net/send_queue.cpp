#include "net/send_queue.h"

#include <sys/socket.h>

#include <cerrno>

#include "wire/frame.h"

// A thread that has something to send appends whole frames to `out_` under the lock. One thread at a time is in the system call:
// it swaps `out_` with the empty `sending_` and sends without the lock, so others can continue to append; when it returns, it
// sends what has accumulated. So frames are never interleaved, no thread waits for another one's system call, and a burst becomes
// few large sends. What the kernel does not take stays in `sending_`.
//
// Both buffers begin with a frame, so a request that is still here can be found by walking from frame to frame. This happens only
// if a request ends early while something is unsent, and costs other requests nothing.

namespace kelo::net {

void SendQueue::endSending() noexcept {
    isSending_ = false;
    if (awaiting_ > 0) sendIsOver_.notify_all();
}

void SendQueue::awaitSender(std::unique_lock<std::mutex>& lock) {
    ++awaiting_;
    sendIsOver_.wait(lock, [this] { return !isSending_; });
    --awaiting_;
}

bool SendQueue::send(std::unique_lock<std::mutex>& lock, int fd, const bool& isOver) {
    while (!isOver) {
        if (offset_ == sending_.size()) {
            sending_.clear();
            offset_ = 0;
            const bool hasMore = !out_.empty();
            // Swapped even if there is nothing more: the next output then goes to the same buffer, so only one of the two grows.
            // This costs 14 instructions per request.
            sending_.swap(out_);
            if (!hasMore) return true;
        }
        lock.unlock();
        const auto sent = ::send(fd, sending_.bytes().data() + offset_, sending_.size() - offset_, MSG_NOSIGNAL | MSG_DONTWAIT);
        const int error = errno;
        lock.lock();
        if (sent > 0) {
            offset_ += static_cast<std::size_t>(sent);
            continue;
        }
        if (error == EINTR) continue;
        blocked_ = error == EAGAIN || error == ENOBUFS;
        // On any other error the peer is gone. The loop learns this from the kernel, after the peer's last data.
        break;
    }
    return false;
}

bool SendQueue::findRequest(const util::ByteBufferWriter& buffer, std::size_t at, std::size_t begin,
                            QueuedRequest& found) noexcept {
    while (at < buffer.size()) {
        wire::FrameHeader header;
        if (wire::readHeader(buffer.bytes().subspan(at), header) != nullptr) return false;  // cannot happen: we wrote it
        const std::size_t size = wire::headerSize + header.bodyLength;
        if (header.type == wire::FrameType::request && at + size > begin) {
            found = {header.requestId, at, size};
            return true;
        }
        at += size;
    }
    return false;
}

void SendQueue::clear() {
    sending_ = util::ByteBufferWriter{};
    out_ = util::ByteBufferWriter{};
    offset_ = 0;
}

void SendQueue::shrink(std::size_t kept) {
    if (sending_.capacity() > kept) sending_ = util::ByteBufferWriter{};
    if (out_.capacity() > kept) out_ = util::ByteBufferWriter{};
}

}  // namespace kelo::net
