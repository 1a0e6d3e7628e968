// A domain: the directory in which its services have their sockets.
#pragma once

#include <string>
#include <string_view>

#include "kelo/runtime/domain_view.h"
#include "net/descriptor.h"

namespace kelo::runtime {

// Makes the directory (0700, parents too) if it is not there and opens it. Refused, with the reason in `error`, if it is a
// symbolic link, belongs to somebody else, or may be written to by others without the sticky bit. `create` false: refused if it
// is not there. Thread: any.
[[nodiscard]] net::Descriptor openDomain(const std::string& directory, bool create, std::string& error);

// The file name of a service's socket: the path with all but letters, digits, "-" and "_" percent-encoded; a name too long for a
// socket address is replaced by "#" and a hash. Never begins with a dot. Thread: any.
[[nodiscard]] std::string socketName(const std::string& directory, std::string_view servicePath);
// The service path of a socket's file name; empty for a file that is none or has a hashed name. Thread: any.
[[nodiscard]] std::string servicePathOf(std::string_view fileName);

}  // namespace kelo::runtime
