// Who a peer is, as the kernel says.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace kelo::policy {

// Computed once, when a connection is made; nothing that a peer sends changes it. Thread: any (a value).
struct Identity {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  // supplementary

    bool isMemberOf(gid_t group) const noexcept;
};

// Of the process at the other end of a connected socket (of the one that listens, seen from a client). False if the kernel has
// none. Thread: any.
[[nodiscard]] bool readIdentity(int fd, pid_t& pid, Identity& who) noexcept;

// The program that a process runs: the path of its file, or, if we may not see that, the name that the kernel has for the
// process, in brackets, because a process can change this name. Empty if we see nothing of it, or if it has ended. Thread: any.
[[nodiscard]] std::string programOf(pid_t process);
// Of this process.
[[nodiscard]] Identity ownIdentity();
// Of a user's processes, from the user database. A uid without an entry there has no groups. Thread: any.
[[nodiscard]] Identity identityOf(uid_t uid);

// The ids that the system has for names; nothing if it does not know the name. Thread: any.
[[nodiscard]] std::optional<uid_t> findUser(const std::string& name);
[[nodiscard]] std::optional<gid_t> findGroup(const std::string& name);
// The name, else the number. Thread: any.
[[nodiscard]] std::string userText(uid_t uid);
[[nodiscard]] std::string groupText(gid_t gid);

}  // namespace kelo::policy
