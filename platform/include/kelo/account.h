// Accounts: on whose behalf this process works. Each client connection has one.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kelo {

// What is kept and done for a client is charged to its account. Shared by the client's connection and by the work in progress for
// it, so it may outlive the connection. Thread: any.
class Account : public std::enable_shared_from_this<Account> {
public:
    // Both from the kernel, taken when the client connected.
    Account(pid_t pid, uid_t uid) noexcept : pid_{pid}, uid_{uid} {}
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    pid_t pid() const noexcept { return pid_; }
    uid_t uid() const noexcept { return uid_; }

    // Requests made for the client that wait for room on a connection to another service, and their size in bytes.
    std::atomic<std::uint32_t> heldRequests{0};
    std::atomic<std::size_t> heldBytes{0};

private:
    const pid_t pid_;
    const uid_t uid_;
};

}  // namespace kelo
