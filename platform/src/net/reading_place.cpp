#include "net/reading_place.h"

// A connection is read by one loop at a time. To have it read elsewhere, a thread only states where. The loop that reads hands
// the connection over in a turn of its own, so never in the middle of a frame, and the receiving loop takes it up in a turn of
// its own. In between nobody reads, and nothing is lost: received bytes go along, other bytes stay in the kernel, and what the
// connection waits for is determined again on arrival. If the wanted loop has changed meanwhile, this too is noticed on arrival.
//
// So nobody has to wait for another thread to move a connection. A thread that must be sure that a connection has left a loop
// waits for the connection, not for the loop.

namespace kelo::net {

bool ReadingPlace::enterLocked(Loop& loop, std::shared_ptr<Pollable> pollable, std::uint32_t events) {
    loop_ = &loop;
    if (wanted_ == nullptr) wanted_ = &loop;
    watched_ = events;
    registration_ = loop.add(fd_, events, std::move(pollable));
    return registration_ != 0;
}

void ReadingPlace::forgetLocked() {
    if (registration_ == 0) return;
    loop_->remove(fd_);
    registration_ = 0;
}

void ReadingPlace::watchLocked(std::uint32_t events) noexcept {
    if (registration_ == 0 || events == watched_) return;
    watched_ = events;
    loop_->modify(fd_, registration_, events);
}

}  // namespace kelo::net
