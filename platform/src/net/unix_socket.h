// Making, naming and connecting local stream sockets.
#pragma once

#include <string>

#include "net/descriptor.h"

namespace kelo::net {

// A connected, non-blocking socket; empty on failure, with errno set: ENOENT when there is no such file, ECONNREFUSED when nobody
// listens, EAGAIN when the listener's queue is full. Thread: any. Paths too long for an address fail with ENAMETOOLONG.
[[nodiscard]] Descriptor connectTo(const std::string& path) noexcept;

// A listening, non-blocking socket bound to a name that did not exist; empty on failure, with errno set. Thread: any.
[[nodiscard]] Descriptor listenAt(const std::string& path) noexcept;

}  // namespace kelo::net
