// Creates, names and connects local stream sockets.
#pragma once

#include <string_view>

#include "net/descriptor.h"

namespace kelo::net {

// A connected, non-blocking socket; empty on failure, with errno set: ENOENT if there is no such file, ECONNREFUSED if nobody
// listens, EAGAIN if the listener's queue is full. `name`: of a file in the open `directory`, whose own path may have any length;
// a name too long for an address fails with ENAMETOOLONG. Thread: any.
[[nodiscard]] Descriptor connectTo(int directory, std::string_view name) noexcept;

// A listening, non-blocking socket, bound to a name that must not exist; empty on failure, with errno set. Thread: any.
[[nodiscard]] Descriptor listenAt(int directory, std::string_view name) noexcept;

}  // namespace kelo::net
