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

    // Calls visit(id) for each request of which the kernel lacks a byte. No thread is sending.
    template <class Visit>
    void forEachUnsentRequest(Visit visit) const {
        forEachRequest(sending_, offset_, [&](const Found& found) { visit(found.id); });
        forEachRequest(out_, 0, [&](const Found& found) { visit(found.id); });
    }
    // Takes out each request for which isMeant(id), if the kernel has no byte of it. No thread is sending.
    template <class IsMeant>
    void withdraw(IsMeant isMeant) {
        const auto withdrawFrom = [&](util::ByteBufferWriter& buffer, std::size_t begin) {
            forEachRequest(buffer, begin, [&](Found& found) {
                if (found.at < begin || !isMeant(found.id)) return;
                buffer.erase(found.at, found.size);
                found.size = 0;
            });
        };
        withdrawFrom(sending_, offset_);
        withdrawFrom(out_, 0);
    }

    // Gives memory back that one burst made large; `kept`: what is not worth it.
    void shrink(std::size_t kept);
    // Nothing of it will be sent any more. No thread is sending.
    void clear();

private:
    // A request's frame in a buffer.
    struct Found {
        std::uint64_t id;
        std::size_t at;
        std::size_t size;  // 0: it has been taken out
    };
    // The next request of which a byte lies at `begin` or behind it; `at`: where to look, at the begin of a frame.
    static bool findRequest(const util::ByteBufferWriter& buffer, std::size_t at, std::size_t begin, Found& found) noexcept;
    template <class Visit>
    static void forEachRequest(const util::ByteBufferWriter& buffer, std::size_t begin, Visit visit) {
        Found found{};
        for (std::size_t at = 0; findRequest(buffer, at, begin, found); at = found.at + found.size) visit(found);
    }

    util::ByteBufferWriter out_;      // appended, not yet being sent
    util::ByteBufferWriter sending_;  // being sent, from offset_
    std::size_t offset_ = 0;
    bool isSending_ = false;
    bool blocked_ = false;
    std::condition_variable sendIsOver_;
};

}  // namespace kelo::net
