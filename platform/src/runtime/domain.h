// A domain: the directory that contains the sockets of its services.
#pragma once

#include <string>
#include <string_view>

#include "kelo/runtime/domain_view.h"
#include "net/descriptor.h"

namespace kelo::runtime {

// Opens the directory; creates it (mode 0700, with its parents) if it does not exist, or, if `create` is false, refuses it. Also
// refuses a symbolic link, and a directory that belongs to somebody other than us or root or may be written to by others without
// the sticky bit; its parent must satisfy the last two rules too. The reason is in `error`. Thread: any.
[[nodiscard]] net::Descriptor openDomain(const std::string& directory, bool create, std::string& error);

// The file name of a service's socket: the path, with everything but letters, digits, "-" and "_" percent-encoded. A name too
// long for a socket address is replaced by "#" and a hash. Never begins with a dot. Thread: any.
[[nodiscard]] std::string socketName(const std::string& directory, std::string_view servicePath);
// The service path for a socket's file name; empty if it is not one, or has a hashed name. Thread: any.
[[nodiscard]] std::string servicePathOf(std::string_view fileName);

}  // namespace kelo::runtime
