// What can be seen of a domain from outside, without entering it; for tools.
#pragma once

#include <sys/types.h>

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

}  // namespace kelo::runtime
