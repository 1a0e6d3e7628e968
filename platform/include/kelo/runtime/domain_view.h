// What can be seen of a domain from outside, without entering it; for tools.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "kelo/runtime/kelo_runtime.h"

namespace kelo::runtime {

// The directory of a domain: what the options name, else $KELO_RUNTIME_DIR, $XDG_RUNTIME_DIR/kelo, /run/kelo where that exists
// and is writable, or a directory of the user's own under the temporary directory; then the domain's name. Thread: any.
[[nodiscard]] std::string domainDirectory(const RuntimeOptions& options);

// The user whose socket a service path leads to, alive or not; nothing when there is no socket, or when that may not be known. A
// service lets in its own user and root, and is trusted by its own user and, when root's, by all: so two different users never
// meet. Thread: any.
[[nodiscard]] std::optional<uid_t> socketOwner(const RuntimeOptions& options, std::string_view servicePath);

inline constexpr std::string_view usualDomain{"local"};

// The domain that the environment chooses: $KELO_DOMAIN, else `usual`. Thread: any.
[[nodiscard]] std::string domainName(std::string_view usual);
// Whether it can be a domain's name: not empty, no slash, no dot at the beginning. Thread: any.
[[nodiscard]] bool isDomainName(std::string_view name) noexcept;

// What becomes of a connection on which nothing is said.
enum class SocketState : unsigned char {
    dead,    // nobody listens
    closed,  // it is closed at once
    silent,  // nothing happens
};
// Connects to a service and waits that long for the connection to be closed. Thread: any.
[[nodiscard]] SocketState probeSocket(const RuntimeOptions& options, std::string_view servicePath,
                                      std::chrono::milliseconds wait);

}  // namespace kelo::runtime
