// Does something as another user, in a thread of its own: for the kernel, each thread has its own user.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <thread>
#include <vector>

namespace testing_support {

struct User {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  // supplementary
};

// Only root can become somebody else. Thread: any.
inline bool canBeOthers() noexcept {
    return ::geteuid() == 0;
}

template <class Do>
auto asUser(const User& user, Do toDo) {
    std::optional<decltype(toDo())> result;
    std::thread{[&] {
        // The library's functions would change all threads.
        if (::syscall(SYS_setgroups, user.groups.size(), user.groups.data()) != 0 ||
            ::syscall(SYS_setresgid, user.gid, user.gid, user.gid) != 0 ||
            ::syscall(SYS_setresuid, user.uid, user.uid, user.uid) != 0)
            std::abort();
        result.emplace(toDo());
    }}.join();
    return std::move(*result);
}

}  // namespace testing_support
