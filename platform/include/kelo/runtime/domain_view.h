// Looks at a domain from outside, without joining it; for tools.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/runtime/kelo_runtime.h"

namespace kelo::runtime {

// The directory of a domain: `options.directory` if it is set. Otherwise the domain's name below the first of: $KELO_RUNTIME_DIR;
// $XDG_RUNTIME_DIR/kelo; /run/kelo, if it is writable or the domain in it can be entered; a directory of the user's own below the
// temporary directory.
// Thread: any.
[[nodiscard]] std::string domainDirectory(const RuntimeOptions& options);

// The user who owns the socket of a service path, whether or not anybody listens; nothing if there is no socket or it may not be
// looked at. Thread: any.
[[nodiscard]] std::optional<uid_t> socketOwner(const RuntimeOptions& options, std::string_view servicePath);
// A provider with which this process cannot connect. Thread: any (a value).
struct Stranger {
    uid_t uid = 0;
    std::string rule;  // of the policy, that says no; empty without a policy: services and their clients are of one user
};
// For each of these service paths, whether this process and the user who owns its socket refuse each other; nothing if they do
// not, or if there is no socket or it may not be looked at. The policy is read at most once. Thread: any.
[[nodiscard]] std::vector<std::optional<Stranger>> findStrangers(const RuntimeOptions& options,
                                                                 std::span<const std::string> servicePaths);

inline constexpr std::string_view usualDomain{"local"};

// The domain that the environment selects: $KELO_DOMAIN, else `usual`. Thread: any.
[[nodiscard]] std::string domainName(std::string_view usual);
// Whether `name` can be a domain's name: not empty, no slash, no leading dot. Thread: any.
[[nodiscard]] bool isDomainName(std::string_view name) noexcept;

// What happens to a connection on which the client sends nothing.
enum class SocketState : unsigned char {
    dead,    // nobody listens
    closed,  // the service closes it at once
    silent,  // it stays open, and nothing is received
};
// Connects to a service and waits at most `wait` for it to close the connection. Thread: any.
[[nodiscard]] SocketState probeSocket(const RuntimeOptions& options, std::string_view servicePath,
                                      std::chrono::milliseconds wait);

}  // namespace kelo::runtime
