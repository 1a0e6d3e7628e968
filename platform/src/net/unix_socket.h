// Making, naming and connecting local stream sockets.
#pragma once

#include <string_view>

#include "net/descriptor.h"

namespace kelo::net {

// A connected, non-blocking socket; empty on failure, with errno set: ENOENT when there is no such file, ECONNREFUSED when nobody
// listens, EAGAIN when the listener's queue is full. Thread: any. `name`: of a file in the open `directory`, however long the
// directory's own name is; a name too long for an address fails with ENAMETOOLONG.
[[nodiscard]] Descriptor connectTo(int directory, std::string_view name) noexcept;

// A listening, non-blocking socket bound to a name that did not exist; empty on failure, with errno set. Thread: any.
[[nodiscard]] Descriptor listenAt(int directory, std::string_view name) noexcept;

}  // namespace kelo::net
