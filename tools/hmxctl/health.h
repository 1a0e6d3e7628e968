// What is wrong with a system, from what is known of it.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "failure.h"
#include "hmx/client/finding.h"

namespace hmxctl {

// A service that a complete system has. Thread: any (a constant).
struct Expected {
    std::string_view path;
    std::string_view program;  // that provides it: its file, or in words
};
// In the order in which the bridge waits for them; /hmx is the last.
[[nodiscard]] std::span<const Expected> expectedServices() noexcept;

// The facts, an object whose members may all be absent:
//   "directory": {"path", "state": "usable", "absent" or "refused", "reason", "uid", "mode", "writable", "freeMiB", "freeFiles",
//                 "leftovers"}
//   "policy": {"directory", "inForce", "audit", "rules", "faults"}; "directory" then also has "readable"
//   "inotify": as inotifyFacts. "shell": {"environment", "version", "uid"}. "processes": as processFacts
//   "services": [{"path", "state" as in `hmxctl services`, "application", "pid", "uid", "rule": why the policy refuses it,
//                 "lock": what its lock file says, "holder": the process that has the lock open, "status": its own, "answer":
//                 {"question", "ms", "error"}}…]
// The rules stand in rules/doctor.json. The most decisive findings come first. Thread: any.
[[nodiscard]] std::vector<Finding> diagnose(const Json& facts);

}  // namespace hmxctl
