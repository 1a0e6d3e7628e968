// A domain: the directory that contains the sockets of its services.
#pragma once

#include <string>
#include <string_view>

#include "kelo/runtime/domain_view.h"
#include "net/descriptor.h"
#include "policy/policy_source.h"

namespace kelo::runtime {

// What somebody follows who looks at a domain from outside. Thread: any.
[[nodiscard]] policy::PolicySource policyFor(const RuntimeOptions& options);
// Opens the directory; creates it (mode 0700, with its parents) if it does not exist, or, if `create` is false, refuses it. Also
// refuses a symbolic link, and a directory that belongs to somebody other than us or root or may be written to by others without
// the sticky bit; its parent must satisfy the last two rules too. With a policy, it may also belong to a user who may publish
// something, and to a group that may write to it, if the set-group-ID bit is set. The reason is in `error`. Thread: any.
[[nodiscard]] net::Descriptor openDomain(const std::string& directory, bool create, const policy::PolicySource& policy,
                                         std::string& error);
// The mode of the sockets in the directory: 0600, or, with a policy, 0660 if the set-group-ID bit gives them the directory's
// group.
[[nodiscard]] mode_t socketMode(int directory, const policy::Policy& policy) noexcept;

// The file name of a service's socket: the path, with everything but letters, digits, "-" and "_" percent-encoded. A name too
// long for a socket address is replaced by "#" and a hash. Never begins with a dot. Thread: any.
[[nodiscard]] std::string socketName(const std::string& directory, std::string_view servicePath);
// The service path for a socket's file name; empty if it is not one, or has a hashed name. Thread: any.
[[nodiscard]] std::string servicePathOf(std::string_view fileName);

}  // namespace kelo::runtime
